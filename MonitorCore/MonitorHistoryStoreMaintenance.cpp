// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string>

#include "MonitorCore/MonitorHistoryStore.h"
#include "MonitorCore/MonitorHistoryStoreDatabase.h"
#include "MonitorCore/MonitorStorageError.h"
#include "MonitorCore/ProgrammingError.h"

namespace monitor {
namespace {

using history::Connection;
using history::Statement;
using history::Step;

constexpr double kDaySeconds = 86'400.0;
constexpr double kLongBucketSeconds = 900.0;
constexpr std::int64_t kShortestRetentionDays = 1;
constexpr std::int64_t kLongestRetentionDays = 30;

// The number of whole seconds, cut off towards zero. A time that has none is a mistake of the caller's from
// which nothing sensible follows: deleting by a made-up cut would lose history.
std::int64_t wholeSeconds(double seconds, const char* name) {
  constexpr double kLimit = 9'223'372'036'854'775'808.0;  // 2^63
  if (!(seconds >= -kLimit && seconds < kLimit)) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%g", seconds);
    stopForProgrammingError(std::string("the history's ") + name + " is " + text.data() +
                            ", which is no 64-bit number of seconds");
  }
  return static_cast<std::int64_t>(seconds);
}

// A page cache of 32 MiB while a maintenance run lasts: a day's roll-up then takes about half the time, and
// the process stays under 100 MB. Only speed depends on it, so its own failures are nobody's concern.
class LargeCache {
 public:
  explicit LargeCache(Connection& db) : db_(db) {
    try {
      Statement current = db.prepare("PRAGMA cache_size");
      if (current.step() != Step::Row) return;
      restore_ = "PRAGMA cache_size=" + std::to_string(current.integer(0));
    } catch (const MonitorStorageError&) {
      return;
    }
    db.tryExecute("PRAGMA cache_size=-32768");
  }
  ~LargeCache() {
    if (!restore_.empty()) db_.tryExecute(restore_.c_str());
  }
  LargeCache(const LargeCache&) = delete;
  LargeCache& operator=(const LargeCache&) = delete;

 private:
  Connection& db_;
  std::string restore_;
};

}  // namespace

void MonitorHistoryStore::maintain(Date now, std::int64_t retentionDays, std::int64_t maxBytes) {
  const std::lock_guard lock(mutex_);
  maintainLocked(now, retentionDays, maxBytes);
}

void MonitorHistoryStore::maintainLocked(Date now, std::int64_t retentionDays, std::int64_t maxBytes) {
  const double dayAgo = now.addingSeconds(-kDaySeconds).secondsSince1970();
  const std::int64_t rollUpCut =
      wholeSeconds(std::floor(dayAgo / kLongBucketSeconds) * kLongBucketSeconds, "roll-up cut");
  const auto days =
      static_cast<double>(std::clamp(retentionDays, kShortestRetentionDays, kLongestRetentionDays));
  const std::int64_t retentionCut =
      wholeSeconds(now.addingSeconds(-days * kDaySeconds).secondsSince1970(), "retention cut");

  const LargeCache cache(*db_);
  rollUp(rollUpCut, retentionCut);
  capSize(maxBytes);
  // The vacuum itself writes to the log, hence the second checkpoint.
  db_->execute("PRAGMA wal_checkpoint(TRUNCATE); PRAGMA incremental_vacuum; PRAGMA wal_checkpoint(TRUNCATE)");
}

void MonitorHistoryStore::rollUp(std::int64_t rollUpCut, std::int64_t retentionCut) {
  const std::string cut = std::to_string(rollUpCut);
  const std::string script =
      "DELETE FROM samples WHERE t<" + std::to_string(retentionCut) +
      "; INSERT INTO samples(t,res,app,metric,total,weight,peak) "
      "SELECT (t/900)*900,900,app,metric,SUM(total),SUM(weight),MAX(peak) FROM samples WHERE res=60 AND t<" +
      cut +
      " GROUP BY (t/900)*900,app,metric ON CONFLICT(t,res,app,metric) DO UPDATE SET "
      "total=total+excluded.total,weight=weight+excluded.weight,peak=MAX(peak,excluded.peak); "
      "DELETE FROM samples WHERE res=60 AND t<" +
      cut + "; COMMIT;";
  db_->execute("BEGIN IMMEDIATE");
  try {
    db_->execute(script.c_str());
  } catch (...) {
    db_->tryExecute("ROLLBACK");
    throw;
  }
}

void MonitorHistoryStore::capSize(std::int64_t maxBytes) {
  while (maxBytes < usedBytes().value_or(0)) {
    const int before = db_->totalChanges();
    // The 60 oldest moments: short rounds, each committed on its own, after which the size is measured again.
    db_->execute("DELETE FROM samples WHERE t IN (SELECT DISTINCT t FROM samples ORDER BY t LIMIT 60)");
    if (db_->totalChanges() == before) return;
  }
}

void MonitorHistoryStore::clear() {
  const std::lock_guard lock(mutex_);
  db_->execute("DELETE FROM samples; PRAGMA wal_checkpoint(TRUNCATE); VACUUM;");
  lastAdvanced_.reset();
}

}  // namespace monitor
