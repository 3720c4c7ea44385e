// SPDX-License-Identifier: MIT
#include "MonitorCore/MonitorHistoryStore.h"

#include <sqlite3.h>

#include <algorithm>
#include <cmath>

#include "MonitorCore/MonitorHistoryStoreDatabase.h"
#include "MonitorCore/MonitorHistoryStoreRows.h"
#include "MonitorCore/MonitorSnapshot.h"
#include "MonitorCore/MonitorStorageError.h"

namespace monitor {
namespace {

namespace fs = std::filesystem;
using history::Connection;
using history::kLongestSampleSeconds;
using history::Row;
using history::Statement;
using history::Step;

constexpr const char* kOpenScript =
    "PRAGMA auto_vacuum=INCREMENTAL; PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; "
    "PRAGMA busy_timeout=3000; PRAGMA journal_size_limit=8388608; "
    "CREATE TABLE IF NOT EXISTS samples(t INTEGER NOT NULL,res INTEGER NOT NULL,app TEXT NOT NULL,"
    "metric TEXT NOT NULL,total REAL NOT NULL,weight REAL NOT NULL,peak REAL NOT NULL,"
    "PRIMARY KEY(t,res,app,metric)); "
    "CREATE INDEX IF NOT EXISTS sample_lookup ON samples(app,metric,t); PRAGMA user_version=1;";
constexpr std::string_view kInsert =
    "INSERT INTO samples(t,res,app,metric,total,weight,peak) VALUES(?,60,?,?,?,?,?) "
    "ON CONFLICT(t,res,app,metric) DO UPDATE SET "
    "total=total+excluded.total,weight=weight+excluded.weight,peak=MAX(peak,excluded.peak)";
constexpr std::string_view kQuery =
    "SELECT t,total/weight,peak,weight,res FROM samples "
    "WHERE app=? AND metric=? AND t>=? AND t<=? AND weight>0 ORDER BY t LIMIT 5000";
constexpr std::string_view kExtent = "SELECT MIN(t),MAX(t) FROM samples";
constexpr std::string_view kUsedBytes =
    "SELECT (page_count-freelist_count)*page_size "
    "FROM pragma_page_count(),pragma_freelist_count(),pragma_page_size()";

constexpr double kBucketSeconds = 60.0;
constexpr std::int64_t kGuardRetentionDays = 30;

// Parents first, so that a new folder is closed to others before anything is put into it. Folders that exist,
// or that another process creates meanwhile, keep their permissions.
void createFolder(const fs::path& folder) {
  if (fs::is_directory(folder)) return;
  if (folder.has_parent_path() && folder.parent_path() != folder) createFolder(folder.parent_path());
  if (fs::create_directory(folder)) fs::permissions(folder, fs::perms::owner_all);
}

// Adds one row to the buckets it overlaps, split at the minute.
void writeRow(Statement& insert, const Row& row) {
  // Written so that a NaN in either is refused too.
  if (!(row.weight > 0 && row.weight <= kLongestSampleSeconds)) return;
  double cursor = row.end - row.weight;
  while (cursor < row.end) {
    const double bucket = std::floor(cursor / kBucketSeconds) * kBucketSeconds;
    const double seconds = std::min(bucket + kBucketSeconds, row.end) - cursor;
    if (!(seconds > 0)) return;
    insert.reset();
    insert.bind(1, bucket);
    insert.bind(2, row.app);
    insert.bind(3, row.metric);
    insert.bind(4, row.value * seconds);
    insert.bind(5, seconds);
    insert.bind(6, row.value);
    if (insert.step() != Step::Done) throw MonitorStorageError::database("Could not save a sample");
    cursor += seconds;
  }
}

std::int64_t fileBytes(const fs::path& file) {
  std::error_code error;
  const auto bytes = fs::file_size(file, error);
  return error ? 0 : static_cast<std::int64_t>(bytes);
}

}  // namespace

bool configureStorageEngine() {
  return sqlite3_config(SQLITE_CONFIG_MULTITHREAD) == SQLITE_OK &&
         sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0) == SQLITE_OK;
}

// The path is made absolute so that no name (":memory:", the empty one) means something else to SQLite.
MonitorHistoryStore::MonitorHistoryStore(const fs::path& url) : url_(fs::absolute(url)) {
  createFolder(url_.parent_path());
  db_ = std::make_unique<Connection>(url_);
  db_->execute(kOpenScript);
  fs::permissions(url_, fs::perms::owner_read | fs::perms::owner_write);
}

MonitorHistoryStore::~MonitorHistoryStore() = default;

void MonitorHistoryStore::append(const MonitorSnapshot& snapshot) {
  const std::lock_guard lock(mutex_);
  if (!(snapshot.interval > 0 && snapshot.interval <= kLongestSampleSeconds)) return;
  const double now = snapshot.timestamp.secondsSince1970();
  if (!std::isfinite(now)) return;
  const bool fresh = snapshot.advancedTimestamp && snapshot.advancedTimestamp != lastAdvanced_;
  const auto rows = history::rowsOf(snapshot, now, fresh);

  Statement insert = db_->prepare(kInsert);
  db_->execute("BEGIN IMMEDIATE");
  try {
    for (const Row& row : rows) writeRow(insert, row);
    db_->execute("COMMIT");
  } catch (...) {
    db_->tryExecute("ROLLBACK");
    throw;
  }
  if (fresh) lastAdvanced_ = snapshot.advancedTimestamp;

  const auto used = usedBytes();
  if (used && *used > kSizeLimit) maintainLocked(snapshot.timestamp, kGuardRetentionDays, kSizeLimit);
}

std::vector<HistoryPoint> MonitorHistoryStore::query(MetricID metric, std::string_view appID, Date from,
                                                     Date through) {
  const std::lock_guard lock(mutex_);
  Statement select = db_->prepare(kQuery);
  select.bind(1, appID);
  select.bind(2, rawValue(metric));
  select.bind(3, from.secondsSince1970());
  select.bind(4, through.secondsSince1970());
  std::vector<HistoryPoint> points;
  Step step = select.step();
  for (; step == Step::Row; step = select.step()) {
    points.push_back({Date::since1970(select.number(0)), select.number(1), select.number(2), select.number(3),
                      select.integer(4)});
  }
  if (step != Step::Done) throw MonitorStorageError::database("Could not read samples");
  return points;
}

HistoryCoverage MonitorHistoryStore::coverage() {
  const std::lock_guard lock(mutex_);
  Statement extent = db_->prepare(kExtent);
  if (extent.step() != Step::Row) return {};
  HistoryCoverage coverage;
  if (!extent.isNull(0)) {
    coverage.start = Date::since1970(extent.number(0));
    coverage.end = Date::since1970(extent.number(1));
  }
  for (const char* suffix : {"", "-wal", "-shm"}) {
    fs::path file = url_;
    file += suffix;
    coverage.bytes += fileBytes(file);
  }
  return coverage;
}

std::optional<std::int64_t> MonitorHistoryStore::usedBytes() {
  Statement used = db_->prepare(kUsedBytes);
  if (used.step() != Step::Row) return std::nullopt;
  return used.integer(0);
}

}  // namespace monitor
