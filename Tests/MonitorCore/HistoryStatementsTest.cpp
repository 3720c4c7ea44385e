// SPDX-License-Identifier: MIT
// The statements that the store sends, in their order, seen through SQLite's own trace.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <limits>

#include "MonitorCore/MonitorHistoryStore.h"
#include "MonitorCore/MonitorStorageError.h"
#include "Tests/MonitorCore/HistoryTestSupport.h"

namespace monitor {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

std::vector<std::string>& statements() {
  static std::vector<std::string> all;
  return all;
}

int record(unsigned, void*, void*, void* text) {
  statements().emplace_back(static_cast<const char*>(text));
  return 0;
}

int traceConnection(sqlite3* db, char**, const sqlite3_api_routines*) {
  return sqlite3_trace_v2(db, SQLITE_TRACE_STMT, record, nullptr);
}

class HistoryStatementsTest : public testing::Test {
 protected:
  HistoryStatementsTest() {
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(traceConnection));
    store = std::make_unique<MonitorHistoryStore>(file);
    opening = take();
  }
  ~HistoryStatementsTest() override {
    sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(traceConnection));
    store.reset();
    statements().clear();
  }
  // What was sent since the last call. The trace repeats triggers and nested statements as comments.
  static std::vector<std::string> take() {
    std::vector<std::string> taken;
    std::swap(taken, statements());
    std::erase_if(taken, [](const std::string& text) { return text.starts_with("--"); });
    for (auto& text : taken) text.erase(0, text.find_first_not_of(' '));
    return taken;
  }

  fakes::TemporaryFolder folder;
  std::filesystem::path file = folder / "history.sqlite";
  std::unique_ptr<MonitorHistoryStore> store;
  std::vector<std::string> opening;
};

constexpr const char* kUsed =
    "SELECT (page_count-freelist_count)*page_size FROM "
    "pragma_page_count(),pragma_freelist_count(),pragma_page_size()";

TEST_F(HistoryStatementsTest, OpeningRunsItsScript) {
  EXPECT_THAT(
      opening,
      ElementsAre("PRAGMA auto_vacuum=INCREMENTAL;", "PRAGMA journal_mode=WAL;", "PRAGMA synchronous=NORMAL;",
                  "PRAGMA busy_timeout=3000;", "PRAGMA journal_size_limit=8388608;",
                  StartsWith("CREATE TABLE IF NOT EXISTS samples("),
                  StartsWith("CREATE INDEX IF NOT EXISTS sample_lookup"), "PRAGMA user_version=1;"));
}

TEST_F(HistoryStatementsTest, AppendIsOneImmediateTransactionFollowedByTheSizeGuard) {
  auto snapshot = fakes::snapshotAt(1'210, 20);
  snapshot.readings.insert(fakes::reading(MetricID::Cpu, 10));
  store->append(snapshot);
  const auto insert = StartsWith("INSERT INTO samples(t,res,app,metric,total,weight,peak) VALUES(");
  EXPECT_THAT(take(), ElementsAre("BEGIN IMMEDIATE", insert, insert, "COMMIT", kUsed));
}

TEST_F(HistoryStatementsTest, SnapshotWithoutRowsIsStillATransaction) {
  store->append(fakes::snapshotAt(1'210, 20));
  EXPECT_THAT(take(), ElementsAre("BEGIN IMMEDIATE", "COMMIT", kUsed));
}

TEST_F(HistoryStatementsTest, RefusedSnapshotTouchesNothing) {
  store->append(fakes::snapshotAt(1'210, 90.5));
  EXPECT_THAT(take(), ElementsAre());
}

TEST_F(HistoryStatementsTest, MaintenanceRunsWithALargeCacheThatIsSetBack) {
  store->maintain(Date::since1970(90'000), 1, std::numeric_limits<std::int64_t>::max());
  EXPECT_THAT(
      take(),
      ElementsAre("PRAGMA cache_size", "PRAGMA cache_size=-32768", "BEGIN IMMEDIATE",
                  "DELETE FROM samples WHERE t<3600;",
                  "INSERT INTO samples(t,res,app,metric,total,weight,peak) SELECT "
                  "(t/900)*900,900,app,metric,SUM(total),SUM(weight),MAX(peak) FROM samples WHERE res=60 AND "
                  "t<3600 GROUP BY (t/900)*900,app,metric ON CONFLICT(t,res,app,metric) DO UPDATE SET "
                  "total=total+excluded.total,weight=weight+excluded.weight,peak=MAX(peak,excluded.peak);",
                  "DELETE FROM samples WHERE res=60 AND t<3600;", "COMMIT;", kUsed,
                  "PRAGMA wal_checkpoint(TRUNCATE);", "PRAGMA incremental_vacuum;",
                  "PRAGMA wal_checkpoint(TRUNCATE)", "PRAGMA cache_size=-2000"));
}

TEST_F(HistoryStatementsTest, CacheIsSetBackAlsoWhenMaintenanceFails) {
  fakes::run(file, "ALTER TABLE samples RENAME TO kept");
  take();
  EXPECT_THROW(store->maintain(Date::since1970(90'000), 1, 0), MonitorStorageError);
  EXPECT_THAT(take(),
              ElementsAre("PRAGMA cache_size", "PRAGMA cache_size=-32768", "BEGIN IMMEDIATE",
                          "DELETE FROM samples WHERE t<3600;", "ROLLBACK", "PRAGMA cache_size=-2000"));
}

TEST_F(HistoryStatementsTest, CapMeasuresBeforeEveryRound) {
  fakes::run(file, "INSERT INTO samples VALUES(80000,60,'','cpu',1,1,1)");
  take();
  store->maintain(Date::since1970(90'000), 1, 0);
  auto sent = take();
  sent.erase(sent.begin(), std::find(sent.begin(), sent.end(), kUsed));
  const std::string round =
      "DELETE FROM samples WHERE t IN (SELECT DISTINCT t FROM samples ORDER BY t LIMIT 60)";
  EXPECT_THAT(sent, ElementsAre(kUsed, round, kUsed, round, "PRAGMA wal_checkpoint(TRUNCATE);",
                                "PRAGMA incremental_vacuum;", "PRAGMA wal_checkpoint(TRUNCATE)",
                                "PRAGMA cache_size=-2000"));
}

TEST_F(HistoryStatementsTest, ClearDeletesCheckpointsAndVacuums) {
  store->clear();
  const auto sent = take();
  ASSERT_GE(sent.size(), 3U);
  EXPECT_EQ(sent[0], "DELETE FROM samples;");
  EXPECT_EQ(sent[1], "PRAGMA wal_checkpoint(TRUNCATE);");
  EXPECT_EQ(sent[2], "VACUUM;");
}

}  // namespace
}  // namespace monitor
