// SPDX-License-Identifier: MIT
#include "Tests/MonitorCore/HistoryTestSupport.h"

#include <sqlite3.h>

#include <memory>
#include <ostream>
#include <random>
#include <stdexcept>

namespace monitor::fakes {
namespace {

namespace fs = std::filesystem;

using Handle = std::unique_ptr<sqlite3, decltype([](sqlite3* db) { sqlite3_close(db); })>;
using Statement = std::unique_ptr<sqlite3_stmt, decltype([](sqlite3_stmt* s) { sqlite3_finalize(s); })>;

Handle open(const fs::path& file) {
  sqlite3* db = nullptr;
  const int status = sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE, "unix");
  Handle handle(db);
  if (status != SQLITE_OK) throw std::runtime_error("cannot open " + file.string());
  return handle;
}

Statement prepare(const Handle& db, const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db.get(), sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    throw std::runtime_error(sqlite3_errmsg(db.get()));
  }
  return Statement(statement);
}

std::string text(const Statement& statement, int column) {
  const auto* bytes = sqlite3_column_text(statement.get(), column);
  return bytes == nullptr ? "NULL" : reinterpret_cast<const char*>(bytes);
}

// In memory where there is room: these tests sync often, and what a sync costs on a busy disk is not their
// subject.
fs::path temporaryPlace() {
  constexpr std::uintmax_t kEnough = 1'000'000'000;
  const fs::path memory = "/dev/shm";
  std::error_code error;
  const auto space = fs::space(memory, error);
  return !error && space.available > kEnough ? memory : fs::temp_directory_path();
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
  std::random_device random;
  do {
    path_ = temporaryPlace() / ("vesk-history-" + std::to_string(random()));
  } while (!fs::create_directory(path_));
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::ostream& operator<<(std::ostream& out, const StoredRow& row) {
  return out << "(" << row.t << ", " << row.res << ", \"" << row.app << "\", " << row.metric << ", total "
             << row.total << ", weight " << row.weight << ", peak " << row.peak << ")";
}

std::vector<StoredRow> storedRows(const fs::path& file) {
  const Handle db = open(file);
  const Statement select =
      prepare(db, "SELECT t,res,app,metric,total,weight,peak FROM samples ORDER BY t,res,app,metric");
  std::vector<StoredRow> rows;
  int status = sqlite3_step(select.get());
  for (; status == SQLITE_ROW; status = sqlite3_step(select.get())) {
    rows.push_back({sqlite3_column_int64(select.get(), 0), sqlite3_column_int64(select.get(), 1),
                    text(select, 2), text(select, 3), sqlite3_column_double(select.get(), 4),
                    sqlite3_column_double(select.get(), 5), sqlite3_column_double(select.get(), 6)});
  }
  if (status != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(db.get()));
  return rows;
}

std::string integrity(const fs::path& file) {
  return textOf(file, "PRAGMA integrity_check");
}

std::string textOf(const fs::path& file, const std::string& sql) {
  const Handle db = open(file);
  const Statement select = prepare(db, sql);
  if (sqlite3_step(select.get()) != SQLITE_ROW) throw std::runtime_error(sqlite3_errmsg(db.get()));
  return text(select, 0);
}

void run(const fs::path& file, const std::string& script) {
  const Handle db = open(file);
  if (sqlite3_exec(db.get(), script.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw std::runtime_error(sqlite3_errmsg(db.get()));
  }
}

MonitorSnapshot snapshotAt(double seconds, double interval) {
  return MonitorSnapshot{Date::since1970(seconds), 5'000.0, interval, {}, {}, {}, 0};
}

std::pair<const MetricID, MetricReading> reading(MetricID metric, double value, const std::string& source,
                                                 double secondsSince1970) {
  return {metric, MetricReading(value, MetricUnit::Percent, source, MetricState::Available,
                                Date::since1970(secondsSince1970), std::nullopt)};
}

AppUsage appUsing(const std::string& id, double cpu) {
  AppUsage app;
  app.id = id;
  app.name = id;
  app.cpu = cpu;
  app.memory = static_cast<std::uint64_t>(cpu) + 1;
  app.diskRead = cpu + 2;
  app.diskWrite = cpu + 3;
  app.download = cpu + 4;
  app.upload = cpu + 5;
  app.energy = cpu + 6;
  return app;
}

}  // namespace monitor::fakes
