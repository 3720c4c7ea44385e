// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "MonitorCore/MonitorHistoryStore.h"
#include "MonitorCore/MonitorStorageError.h"
#include "Tests/MonitorCore/HistoryTestSupport.h"

namespace monitor {
namespace {

namespace fs = std::filesystem;
using fakes::appUsing;
using fakes::reading;
using fakes::snapshotAt;
using fakes::StoredRow;
using fakes::storedRows;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr double kNow = 1'731'801'600.0;  // a multiple of 900
constexpr std::int64_t kDayBefore = 1'731'715'200;
constexpr std::int64_t kUnlimited = std::numeric_limits<std::int64_t>::max();

class HistoryMaintenanceTest : public testing::Test {
 protected:
  void insert(std::int64_t t, std::int64_t res = 60, double total = 60, double weight = 60, double peak = 1,
              const std::string& app = "") {
    fakes::run(file, "INSERT INTO samples VALUES(" + std::to_string(t) + "," + std::to_string(res) + ",'" +
                         app + "','cpu'," + std::to_string(total) + "," + std::to_string(weight) + "," +
                         std::to_string(peak) + ")");
  }
  void maintain(double now, std::int64_t days = 30, std::int64_t bytes = kUnlimited) {
    store.maintain(Date::since1970(now), days, bytes);
  }
  std::vector<StoredRow> rows() { return storedRows(file); }
  std::vector<std::int64_t> times() {
    std::vector<std::int64_t> all;
    for (const auto& row : rows()) all.push_back(row.t);
    return all;
  }
  std::int64_t number(const std::string& sql) { return std::stoll(fakes::textOf(file, sql)); }
  std::int64_t usedBytes() {
    return number(
        "SELECT (page_count-freelist_count)*page_size FROM "
        "pragma_page_count(),pragma_freelist_count(),pragma_page_size()");
  }

  fakes::TemporaryFolder folder;
  fs::path file = folder / "history.sqlite";
  MonitorHistoryStore store{file};
};
using HistoryMaintenanceDeathTest = HistoryMaintenanceTest;

// Roll-up.

TEST_F(HistoryMaintenanceTest, RollUpCutIsTheQuarterHourADayBack) {
  for (const double now : {kNow, kNow + 100, kNow + 899.9}) {
    store.clear();
    insert(kDayBefore - 60);
    insert(kDayBefore);
    maintain(now);
    EXPECT_THAT(rows(), ElementsAre(StoredRow{kDayBefore - 900, 900, "", "cpu", 60, 60, 1},
                                    StoredRow{kDayBefore, 60, "", "cpu", 60, 60, 1}))
        << now;
  }
  maintain(kNow + 900);
  EXPECT_EQ(rows().back().res, 900);
}

TEST_F(HistoryMaintenanceTest, RowsOfOneQuarterHourAreSummedAndTheirPeakIsTheLargest) {
  insert(kDayBefore - 900, 60, 100, 10, 12);
  insert(kDayBefore - 60, 60, 50, 5, 9);
  maintain(kNow);
  EXPECT_THAT(rows(), ElementsAre(StoredRow{kDayBefore - 900, 900, "", "cpu", 150, 15, 12}));
}

TEST_F(HistoryMaintenanceTest, LateRowsMergeWithTheQuarterHourOfAnEarlierRun) {
  insert(kDayBefore - 900, 900, 100, 10, 9);
  insert(kDayBefore - 60, 60, 50, 5, 12);
  maintain(kNow);
  EXPECT_THAT(rows(), ElementsAre(StoredRow{kDayBefore - 900, 900, "", "cpu", 150, 15, 12}));
}

TEST_F(HistoryMaintenanceTest, SeriesAreRolledUpApart) {
  insert(kDayBefore - 900, 60, 100, 10, 1, "a");
  insert(kDayBefore - 840, 60, 50, 5, 2, "b");
  insert(kDayBefore - 960, 60, 25, 4, 3, "a");
  maintain(kNow);
  EXPECT_THAT(rows(), ElementsAre(StoredRow{kDayBefore - 1'800, 900, "a", "cpu", 25, 4, 3},
                                  StoredRow{kDayBefore - 900, 900, "a", "cpu", 100, 10, 1},
                                  StoredRow{kDayBefore - 900, 900, "b", "cpu", 50, 5, 2}));
}

TEST_F(HistoryMaintenanceTest, SecondRunChangesNothing) {
  for (std::int64_t t = kDayBefore - 7'200; t < kDayBefore + 7'200; t += 60) insert(t);
  maintain(kNow);
  const auto once = rows();
  maintain(kNow);
  EXPECT_EQ(rows(), once);
}

TEST_F(HistoryMaintenanceTest, QuarterHoursBefore1970AreCutTowardsZero) {
  insert(-960);
  insert(-60);
  insert(60);
  maintain(90'000);  // the roll-up cut is 3600
  EXPECT_THAT(rows(), ElementsAre(StoredRow{-900, 900, "", "cpu", 60, 60, 1},
                                  StoredRow{0, 900, "", "cpu", 120, 120, 1}));
}

// Retention.

TEST_F(HistoryMaintenanceTest, RetentionIsHeldBetweenOneAndThirtyDays) {
  const auto daysKept = [&](std::int64_t days) {
    store.clear();
    for (std::int64_t day = 0; day <= 40; ++day) insert(static_cast<std::int64_t>(kNow) - day * 86'400, 900);
    maintain(kNow, days);
    return rows().size() - 1;  // the row at the cut itself is kept
  };
  EXPECT_EQ(daysKept(0), 1U);
  EXPECT_EQ(daysKept(-5), 1U);
  EXPECT_EQ(daysKept(std::numeric_limits<std::int64_t>::min()), 1U);
  EXPECT_EQ(daysKept(1), 1U);
  EXPECT_EQ(daysKept(7), 7U);
  EXPECT_EQ(daysKept(30), 30U);
  EXPECT_EQ(daysKept(365), 30U);
  EXPECT_EQ(daysKept(std::numeric_limits<std::int64_t>::max()), 30U);
}

TEST_F(HistoryMaintenanceTest, RetentionCutIsNotRoundedAndIsTruncatedToWholeSeconds) {
  const auto cut = static_cast<std::int64_t>(kNow) + 7 - 7 * 86'400;
  insert(cut - 1, 900);
  insert(cut, 900);
  maintain(kNow + 7.9, 7);
  EXPECT_THAT(times(), ElementsAre(cut));
}

TEST_F(HistoryMaintenanceTest, RetentionCutBefore1970IsTruncatedTowardsZero) {
  insert(-2, 900);
  insert(-1, 900);
  maintain(86'400 - 1.5, 1);  // the cut is -1.5, cut off to -1
  EXPECT_THAT(times(), ElementsAre(-1));
}

TEST_F(HistoryMaintenanceTest, OldRowsOfBothResolutionsAreDeletedBeforeTheyAreRolledUp) {
  const auto cut = static_cast<std::int64_t>(kNow) + 60 - 2 * 86'400;
  insert(cut - 60);
  insert(cut);
  insert(cut - 900, 900);
  maintain(kNow + 60, 2);
  EXPECT_THAT(rows(), ElementsAre(StoredRow{cut / 900 * 900, 900, "", "cpu", 60, 60, 1}));
}

// Size cap.

TEST_F(HistoryMaintenanceTest, BudgetAboveTheUsedSizeDeletesNothing) {
  for (std::int64_t minute = 0; minute < 200; ++minute) insert(kDayBefore + minute * 60);
  maintain(kNow, 30, usedBytes());
  EXPECT_THAT(rows(), SizeIs(200));
}

TEST_F(HistoryMaintenanceTest, BudgetOfZeroDeletesEveryRowAndEnds) {
  for (std::int64_t minute = 0; minute < 200; ++minute) insert(kDayBefore + minute * 60);
  maintain(kNow, 30, 0);
  EXPECT_THAT(rows(), IsEmpty());
  EXPECT_GT(usedBytes(), 0);
  maintain(kNow, 30, std::numeric_limits<std::int64_t>::min());
}

TEST_F(HistoryMaintenanceTest, CapDeletesTheSixtyOldestMomentsPerRoundUntilTheRestFits) {
  // Some 500 bytes of text a row, so that rounds of 60 moments are several pages apart.
  const std::string app(500, 'a');
  for (std::int64_t minute = 0; minute < 200; ++minute) insert(kDayBefore + minute * 60, 60, 60, 60, 1, app);
  const auto budget = usedBytes() - 1;
  maintain(kNow, 30, budget);
  ASSERT_THAT(rows(), SizeIs(140));
  EXPECT_EQ(times().front(), kDayBefore + 60 * 60);
  EXPECT_LE(usedBytes(), budget);
}

TEST_F(HistoryMaintenanceTest, CapCountsMomentsOfBothResolutionsAndAllSeriesOnce) {
  const std::string padding(200, 'a');
  insert(kDayBefore, 900, 60, 60, 1, padding);
  for (std::int64_t minute = 0; minute < 60; ++minute) {
    insert(kDayBefore + minute * 60, 60, 60, 60, 1, "a" + padding);
    insert(kDayBefore + minute * 60, 60, 60, 60, 1, "b" + padding);
  }
  insert(kDayBefore + 60 * 60);
  maintain(kNow, 30, usedBytes() - 1);
  EXPECT_THAT(times(), ElementsAre(kDayBefore + 60 * 60));
}

// Space.

TEST_F(HistoryMaintenanceTest, FreedSpaceGoesBackToTheFileSystem) {
  fakes::run(file,
             "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i<20000) "
             "INSERT INTO samples SELECT i*60,60,'an.app.with.a.name','cpu',60,60,1 FROM n");
  maintain(20'000.0 * 60);
  const auto before = fs::file_size(file);
  maintain(20'000.0 * 60, 30, 0);
  EXPECT_LT(fs::file_size(file), before / 10);
  EXPECT_EQ(fs::file_size(file.string() + "-wal"), 0U);
  EXPECT_EQ(number("PRAGMA freelist_count"), 0);
}

TEST_F(HistoryMaintenanceTest, UseAfterMaintenanceGoesOn) {
  insert(kDayBefore - 60);
  maintain(kNow);
  auto snapshot = snapshotAt(kNow, 30);
  snapshot.readings.insert(reading(MetricID::Cpu, 5));
  store.append(snapshot);
  EXPECT_THAT(store.query(MetricID::Cpu, "", Date::since1970(0), Date::since1970(kNow)), SizeIs(2));
}

TEST_F(HistoryMaintenanceTest, ClearEmptiesAndVacuumsTheFile) {
  for (std::int64_t minute = 0; minute < 200; ++minute) insert(kDayBefore + minute * 60);
  store.clear();
  EXPECT_THAT(rows(), IsEmpty());
  EXPECT_EQ(number("PRAGMA freelist_count"), 0);
  EXPECT_EQ(number("PRAGMA user_version"), 1);
}

TEST(HistoryClearTest, ClearOfAnEmptyHistoryLeavesAnEmptyVacuumedFile) {
  const fakes::TemporaryFolder folder;
  const fs::path file = folder / "history.sqlite";
  { MonitorHistoryStore(file).clear(); }
  EXPECT_THAT(storedRows(file), IsEmpty());
  EXPECT_EQ(fakes::textOf(file, "PRAGMA freelist_count"), "0");
  EXPECT_EQ(std::to_string(fs::file_size(file) / 4'096), fakes::textOf(file, "PRAGMA page_count"));
  EXPECT_EQ(fakes::integrity(file), "ok");
}

TEST_F(HistoryMaintenanceTest, ClearMakesTheSameHelperTimestampFreshAgain) {
  auto snapshot = snapshotAt(kNow, 2);
  snapshot.apps.push_back(appUsing("a", 1));
  snapshot.advancedTimestamp = Date::since1970(kNow - 5);
  store.append(snapshot);
  EXPECT_THAT(rows(), SizeIs(7));
  store.clear();
  store.append(snapshot);
  EXPECT_THAT(rows(), SizeIs(7));
}

TEST_F(HistoryMaintenanceTest, FailedClearKeepsTheHelperTimestamp) {
  auto snapshot = snapshotAt(kNow, 2);
  snapshot.apps.push_back(appUsing("a", 1));
  snapshot.advancedTimestamp = Date::since1970(kNow - 5);
  store.append(snapshot);
  fakes::run(file, "ALTER TABLE samples RENAME TO kept");
  EXPECT_THROW(store.clear(), MonitorStorageError);
  fakes::run(file, "ALTER TABLE kept RENAME TO samples");
  store.append(snapshot);
  EXPECT_EQ(store.query(MetricID::Download, "a", Date::since1970(0), Date::since1970(kNow)).at(0).coverage,
            1);
}

// Failures.

TEST_F(HistoryMaintenanceTest, FailedRollUpLeavesEverythingAsItWas) {
  insert(kDayBefore - 60);
  insert(kDayBefore - 40 * 86'400);
  const auto before = rows();
  fakes::run(file,
             "CREATE TRIGGER refuse BEFORE INSERT ON samples WHEN NEW.res=900 BEGIN SELECT RAISE(ABORT,'no "
             "room'); END");
  try {
    maintain(kNow);
    FAIL() << "maintained";
  } catch (const MonitorStorageError& error) {
    EXPECT_EQ(error.message(), "no room");
  }
  EXPECT_EQ(rows(), before);
  fakes::run(file, "DROP TRIGGER refuse");
  maintain(kNow);
  EXPECT_EQ(rows().size(), 1U);
}

TEST_F(HistoryMaintenanceTest, FailedCapKeepsTheRollUp) {
  insert(kDayBefore - 60);
  insert(kDayBefore + 60);
  fakes::run(file,
             "CREATE TRIGGER refuse BEFORE DELETE ON samples WHEN OLD.res=900 BEGIN SELECT RAISE(ABORT,'no "
             "more'); END");
  EXPECT_THROW(maintain(kNow, 30, 0), MonitorStorageError);
  EXPECT_THAT(rows(), ElementsAre(StoredRow{kDayBefore - 900, 900, "", "cpu", 60, 60, 1},
                                  StoredRow{kDayBefore + 60, 60, "", "cpu", 60, 60, 1}));
}

// Times without a cut.

TEST_F(HistoryMaintenanceDeathTest, TimesWithoutAWholeNumberOfSecondsStopTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_DEATH(maintain(nan), "the history's roll-up cut is nan, which is no 64-bit number of seconds");
  EXPECT_DEATH(maintain(infinity), "roll-up cut is inf, ");
  EXPECT_DEATH(maintain(-infinity), "roll-up cut is -inf, ");
  EXPECT_DEATH(maintain(9.3e18), "roll-up cut is 9.3e\\+18, ");
  EXPECT_DEATH(maintain(-9.3e18), "roll-up cut is -9.3e\\+18, ");
}

TEST_F(HistoryMaintenanceTest, LargestAndSmallestTimesThatHaveCutsAreAccepted) {
  maintain(9.2e18);
  maintain(-9.2e18);
}

// The size guard of append.

TEST(HistorySizeGuardTest, AppendMaintainsAboveTheLimitAndKeepsItsRowsWhenThatFails) {
  const fakes::TemporaryFolder folder;
  const fs::path file = folder / "history.sqlite";
  { const MonitorHistoryStore created(file); }
  // Text is stored three times, in the table and in both indexes: 82 rows of a million bytes are 246 million.
  // They lie at moments after the sixty oldest ones, among which is only one of this size.
  fakes::run(file,
             "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; BEGIN; WITH RECURSIVE n(i) AS (SELECT 0 UNION "
             "ALL SELECT i+1 FROM n WHERE i<141) INSERT INTO samples SELECT " +
                 std::to_string(kDayBefore) +
                 "+i*60,60,iif(i=0 OR i>60,hex(zeroblob(500000)),'small'),'cpu',60,60,1 FROM n; COMMIT");
  const auto used = [&] {
    return std::stoll(fakes::textOf(file,
                                    "SELECT (page_count-freelist_count)*page_size FROM "
                                    "pragma_page_count(),pragma_freelist_count(),pragma_page_size()"));
  };
  const auto times = [&](const std::string& function) {
    return std::stoll(fakes::textOf(file, "SELECT " + function + "(t) FROM samples"));
  };
  MonitorHistoryStore store(file);
  auto snapshot = snapshotAt(kNow, 30);
  snapshot.readings.insert(reading(MetricID::Cpu, 5));

  ASSERT_LT(used(), MonitorHistoryStore::kSizeLimit);
  store.append(snapshot);
  EXPECT_EQ(times("MIN"), kDayBefore);

  fakes::run(
      file,
      "INSERT INTO samples SELECT t,60,app||i,metric,60,60,1 FROM samples,(SELECT 1 AS i UNION SELECT 2 "
      "UNION SELECT 3 UNION SELECT 4 UNION SELECT 5) WHERE t=" +
          std::to_string(kDayBefore) +
          "; CREATE TRIGGER refuse BEFORE DELETE ON samples BEGIN SELECT RAISE(ABORT,'no more'); END");
  ASSERT_GT(used(), MonitorHistoryStore::kSizeLimit);
  snapshot.timestamp = Date::since1970(kNow + 60);
  try {
    store.append(snapshot);
    FAIL() << "maintained";
  } catch (const MonitorStorageError& error) {
    EXPECT_EQ(error.message(), "no more");
  }
  EXPECT_EQ(times("MAX"), static_cast<std::int64_t>(kNow));  // the snapshot is stored all the same

  fakes::run(file, "DROP TRIGGER refuse");
  snapshot.timestamp = Date::since1970(kNow + 120);
  store.append(snapshot);
  EXPECT_EQ(times("MAX"), static_cast<std::int64_t>(kNow) + 60);
  EXPECT_EQ(times("MIN"), kDayBefore + 60 * 60);  // the sixty oldest moments went
  EXPECT_LE(used(), MonitorHistoryStore::kSizeLimit);
}

}  // namespace
}  // namespace monitor
