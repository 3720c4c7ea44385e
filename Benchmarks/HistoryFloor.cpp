// SPDX-License-Identifier: MIT
#include "Benchmarks/HistoryFloor.h"

#include <cmath>
#include <stdexcept>

#include "MonitorCore/MonitorHistoryStore.h"

namespace monitor::bench {
namespace {

void check(bool ok, const Handle& db) {
  if (!ok) throw std::runtime_error(sqlite3_errmsg(db.get()));
}

Handle open(const std::filesystem::path& file) {
  sqlite3* db = nullptr;
  const int status = sqlite3_open(file.c_str(), &db);
  Handle handle(db);
  check(status == SQLITE_OK, handle);
  return handle;
}

}  // namespace

HistoryFloor::HistoryFloor(const std::filesystem::path& file) : db_(open(file)) {
  execute(
      "PRAGMA auto_vacuum=INCREMENTAL; PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA "
      "busy_timeout=3000; PRAGMA journal_size_limit=8388608");
}

void HistoryFloor::execute(const std::string& script) {
  check(sqlite3_exec(db_.get(), script.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK, db_);
}

Statement HistoryFloor::prepare(const char* text) {
  sqlite3_stmt* statement = nullptr;
  check(sqlite3_prepare_v2(db_.get(), text, -1, &statement, nullptr) == SQLITE_OK, db_);
  return Statement(statement);
}

void HistoryFloor::append(const std::vector<FloorRow>& rows, double end, double seconds) {
  const Statement statement = prepare(
      "INSERT INTO samples(t,res,app,metric,total,weight,peak) VALUES(?,60,?,?,?,?,?) ON "
      "CONFLICT(t,res,app,metric) "
      "DO UPDATE SET total=total+excluded.total,weight=weight+excluded.weight,peak=MAX(peak,excluded.peak)");
  sqlite3_stmt* insert = statement.get();
  execute("BEGIN IMMEDIATE");
  const double bucket = std::floor((end - seconds) / 60) * 60;
  for (const FloorRow& row : rows) {
    sqlite3_reset(insert);
    sqlite3_clear_bindings(insert);
    sqlite3_bind_double(insert, 1, bucket);
    sqlite3_bind_text(insert, 2, row.app, row.appBytes, SQLITE_STATIC);
    sqlite3_bind_text(insert, 3, row.metric, row.metricBytes, SQLITE_STATIC);
    sqlite3_bind_double(insert, 4, row.value * seconds);
    sqlite3_bind_double(insert, 5, seconds);
    sqlite3_bind_double(insert, 6, row.value);
    check(sqlite3_step(insert) == SQLITE_DONE, db_);
  }
  execute("COMMIT");
  usedBytes();
}

std::vector<FloorPoint> HistoryFloor::query(const std::string& metric, const std::string& app, double from,
                                            double through) {
  const Statement statement = prepare(
      "SELECT t,total/weight,peak,weight,res FROM samples WHERE app=? AND metric=? AND t>=? AND t<=? AND "
      "weight>0 "
      "ORDER BY t LIMIT 5000");
  sqlite3_stmt* select = statement.get();
  sqlite3_bind_text(select, 1, app.data(), static_cast<int>(app.size()), SQLITE_STATIC);
  sqlite3_bind_text(select, 2, metric.data(), static_cast<int>(metric.size()), SQLITE_STATIC);
  sqlite3_bind_double(select, 3, from);
  sqlite3_bind_double(select, 4, through);
  std::vector<FloorPoint> points;
  while (sqlite3_step(select) == SQLITE_ROW) {
    points.push_back({sqlite3_column_double(select, 0), sqlite3_column_double(select, 1),
                      sqlite3_column_double(select, 2), sqlite3_column_double(select, 3),
                      sqlite3_column_int64(select, 4)});
  }
  return points;
}

void HistoryFloor::maintain(std::int64_t rollUpCut, std::int64_t retentionCut) {
  const std::string cut = std::to_string(rollUpCut);
  execute("BEGIN IMMEDIATE");
  execute("DELETE FROM samples WHERE t<" + std::to_string(retentionCut) +
          "; INSERT INTO samples(t,res,app,metric,total,weight,peak) SELECT "
          "(t/900)*900,900,app,metric,SUM(total),SUM(weight),MAX(peak) FROM samples WHERE res=60 AND t<" +
          cut +
          " GROUP BY (t/900)*900,app,metric ON CONFLICT(t,res,app,metric) DO UPDATE SET "
          "total=total+excluded.total,weight=weight+excluded.weight,peak=MAX(peak,excluded.peak); DELETE "
          "FROM samples "
          "WHERE res=60 AND t<" +
          cut + "; COMMIT;");
  usedBytes();
  execute("PRAGMA wal_checkpoint(TRUNCATE); PRAGMA incremental_vacuum; PRAGMA wal_checkpoint(TRUNCATE)");
}

std::int64_t HistoryFloor::usedBytes() {
  const Statement used = prepare(
      "SELECT (page_count-freelist_count)*page_size FROM "
      "pragma_page_count(),pragma_freelist_count(),pragma_page_size()");
  return sqlite3_step(used.get()) == SQLITE_ROW ? sqlite3_column_int64(used.get(), 0) : 0;
}

std::string appName(int index) {
  std::string digits = std::to_string(index);
  return "org.example.application-" + std::string(3 - std::min<std::size_t>(3, digits.size()), '0') + digits;
}

void prefill(const std::filesystem::path& file, std::int64_t start, int minutes, int apps) {
  { const MonitorHistoryStore created(file); }
  const Handle db = open(file);
  // In the order of the primary key, the other index made afterwards: minutes become seconds.
  const std::string script =
      "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; PRAGMA cache_size=-65536; DROP INDEX sample_lookup; "
      "BEGIN; "
      "CREATE TEMP TABLE series AS "
      "WITH RECURSIVE a(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM a WHERE i<" +
      std::to_string(apps - 1) +
      "), "
      "m(metric) AS "
      "(VALUES('cpu'),('diskRead'),('diskWrite'),('download'),('energyImpact'),('memoryUsed'),('upload')) "
      "SELECT printf('org.example.application-%03d',i) AS app,metric FROM a,m UNION ALL "
      "SELECT '',printf('machineWide%02d',i) FROM (WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 "
      "FROM n WHERE "
      "i<19) SELECT i FROM n) ORDER BY 1,2; "
      "INSERT INTO samples WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i<" +
      std::to_string(minutes - 1) + ") SELECT " + std::to_string(start) +
      "+i*60,60,app,metric,(i%97)*30.5,60,(i%97)*1.25 FROM n CROSS JOIN series; "
      "CREATE INDEX sample_lookup ON samples(app,metric,t); COMMIT";
  check(sqlite3_exec(db.get(), script.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK, db);
}

}  // namespace monitor::bench
