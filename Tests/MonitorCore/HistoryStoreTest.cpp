// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
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

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNoon = 1'731'758'400.0;  // a multiple of 900

class HistoryStoreTest : public testing::Test {
 protected:
  MonitorSnapshot machineWide(double end, double interval, double value) {
    auto snapshot = snapshotAt(end, interval);
    snapshot.readings.insert(reading(MetricID::Cpu, value));
    return snapshot;
  }
  // A snapshot with one app, taken at `end`, whose helper figures are from `helper` and cover
  // `helperInterval`.
  MonitorSnapshot withHelper(double end, double helper, double helperInterval = 1.0) {
    auto snapshot = snapshotAt(end, 2.0);
    snapshot.apps.push_back(appUsing("org.example.editor", 10.0));
    snapshot.advancedTimestamp = Date::since1970(helper);
    snapshot.advancedInterval = helperInterval;
    return snapshot;
  }
  std::vector<StoredRow> rows() { return storedRows(file); }
  // The stored rows of one app and metric.
  std::vector<StoredRow> rows(const std::string& app, const std::string& metric) {
    auto all = rows();
    std::erase_if(all, [&](const StoredRow& row) { return row.app != app || row.metric != metric; });
    return all;
  }
  std::vector<HistoryPoint> everything(MetricID metric, std::string_view app) {
    return store.query(metric, app, Date::since1970(-1e12), Date::since1970(1e12));
  }
  static fs::perms mode(const fs::path& path) { return fs::status(path).permissions(); }

  fakes::TemporaryFolder folder;
  fs::path file = folder / "history.sqlite";
  MonitorHistoryStore store{file};
};

// Opening.

TEST_F(HistoryStoreTest, NewFoldersAreForTheOwnerAloneAndExistingOnesKeepTheirMode) {
  const fs::path existing = folder / "existing";
  fs::create_directory(existing);
  fs::permissions(existing, fs::perms::owner_all | fs::perms::group_read | fs::perms::others_read);
  const auto before = mode(existing);
  const MonitorHistoryStore other(existing / "a" / "b" / "history.sqlite");
  EXPECT_EQ(mode(existing), before);
  EXPECT_EQ(mode(existing / "a"), fs::perms::owner_all);
  EXPECT_EQ(mode(existing / "a" / "b"), fs::perms::owner_all);
}

TEST_F(HistoryStoreTest, FileIsForTheOwnerAloneAlsoWhenItExistedBefore) {
  const auto ownerOnly = fs::perms::owner_read | fs::perms::owner_write;
  EXPECT_EQ(mode(file), ownerOnly);
  const fs::path older = folder / "older.sqlite";
  std::ofstream(older).flush();
  fs::permissions(older, ownerOnly | fs::perms::group_read | fs::perms::others_read);
  const MonitorHistoryStore other(older);
  EXPECT_EQ(mode(older), ownerOnly);
}

TEST_F(HistoryStoreTest, FileInThePlaceOfTheFolderIsTheFileSystemsOwnError) {
  std::ofstream(folder / "occupied") << "x";
  EXPECT_THROW(MonitorHistoryStore(folder / "occupied" / "history.sqlite"), fs::filesystem_error);
  EXPECT_THROW(MonitorHistoryStore(folder / "occupied" / "deeper" / "history.sqlite"), fs::filesystem_error);
}

TEST_F(HistoryStoreTest, FolderInThePlaceOfTheFileCannotBeOpened) {
  fs::create_directory(folder / "folder");
  try {
    MonitorHistoryStore(folder / "folder");
    FAIL() << "opened";
  } catch (const MonitorStorageError& error) {
    EXPECT_STREQ(error.what(), "Monitor history: Could not open local storage");
  }
}

TEST_F(HistoryStoreTest, FileThatIsNoDatabaseIsRefusedWithTheDatabasesMessageAndKept) {
  const fs::path other = folder / "letter.txt";
  const std::string text(8'192, 'x');
  std::ofstream(other) << text;
  try {
    MonitorHistoryStore{other};
    FAIL() << "opened";
  } catch (const MonitorStorageError& error) {
    EXPECT_EQ(error.message(), "file is not a database");
  }
  std::ifstream in(other);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), text);
}

TEST_F(HistoryStoreTest, SchemaAndPragmasAreTheOnesOfVersionOne) {
  EXPECT_EQ(fakes::textOf(file, "PRAGMA user_version"), "1");
  EXPECT_EQ(fakes::textOf(file, "PRAGMA journal_mode"), "wal");
  EXPECT_EQ(fakes::textOf(file, "PRAGMA auto_vacuum"), "2");  // incremental
  EXPECT_EQ(
      fakes::textOf(file, "SELECT sql FROM sqlite_schema WHERE name='samples'"),
      "CREATE TABLE samples(t INTEGER NOT NULL,res INTEGER NOT NULL,app TEXT NOT NULL,metric TEXT NOT "
      "NULL,total REAL NOT NULL,weight REAL NOT NULL,peak REAL NOT NULL,PRIMARY KEY(t,res,app,metric))");
  EXPECT_EQ(fakes::textOf(file, "SELECT sql FROM sqlite_schema WHERE name='sample_lookup'"),
            "CREATE INDEX sample_lookup ON samples(app,metric,t)");
  EXPECT_EQ(fakes::textOf(file, "SELECT count(*) FROM sqlite_schema WHERE name NOT LIKE 'sqlite_%'"), "2");
}

TEST_F(HistoryStoreTest, DatabaseOfVersionOneIsReadAndContinued) {
  const fs::path copy = folder / "copy.sqlite";
  fs::copy_file(fs::path(VESK_FIXTURES) / "history-v1.sqlite", copy);
  MonitorHistoryStore old(copy);
  const auto points =
      old.query(MetricID::Cpu, "org.example.editor", Date::since1970(0), Date::since1970(kNoon));
  EXPECT_THAT(points, ElementsAre(HistoryPoint{Date::since1970(kNoon - 900), 25, 40, 450, 900},
                                  HistoryPoint{Date::since1970(kNoon), 30, 30, 60, 60}));
  old.append(machineWide(kNoon + 90, 30, 5));
  EXPECT_THAT(storedRows(copy), SizeIs(4));
  EXPECT_EQ(fakes::integrity(copy), "ok");
}

TEST_F(HistoryStoreTest, ReopeningKeepsTheHistory) {
  store.append(machineWide(kNoon + 30, 30, 5));
  MonitorHistoryStore again(file);
  EXPECT_THAT(again.query(MetricID::Cpu, "", Date::since1970(0), Date::since1970(kNoon)), SizeIs(1));
}

TEST_F(HistoryStoreTest, RelativeNamesAreFilesEvenWhereSqliteWouldReadThemOtherwise) {
  const fs::path before = fs::current_path();
  fs::current_path(folder.path());
  MonitorHistoryStore(":memory:").append(machineWide(kNoon + 30, 30, 5));
  MonitorHistoryStore("file:x?mode=memory").append(machineWide(kNoon + 30, 30, 5));
  fs::current_path(before);
  EXPECT_THAT(storedRows(folder / ":memory:"), SizeIs(1));
  EXPECT_THAT(storedRows(folder / "file:x?mode=memory"), SizeIs(1));
}

// Which snapshots and rows are stored.

TEST_F(HistoryStoreTest, IntervalOfNinetySecondsIsStored) {
  store.append(machineWide(kNoon + 100, 90, 5));
  EXPECT_THAT(rows(), SizeIs(2));
}

TEST_F(HistoryStoreTest, IntervalsOutsideZeroToNinetyStoreNothing) {
  for (const double interval : {90.5, std::nextafter(90.0, 91.0), 0.0, -1.0, kNaN, kInfinity, -kInfinity}) {
    store.append(machineWide(kNoon, interval, 5));
  }
  EXPECT_THAT(rows(), IsEmpty());
  store.append(machineWide(kNoon, std::numeric_limits<double>::min(), 5));
  EXPECT_THAT(rows(), IsEmpty());  // an interval too short to move the time
  store.append(machineWide(kNoon, 0.001, 5));
  EXPECT_THAT(rows(), SizeIs(1));
}

TEST_F(HistoryStoreTest, TimestampsThatAreNotFiniteStoreNothing) {
  for (const double time : {kNaN, kInfinity, -kInfinity}) store.append(machineWide(time, 30, 5));
  EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(HistoryStoreTest, HugeTimestampsStoreNothingAndEnd) {
  for (const double time : {1e300, -1e300, 1e18, -1e18}) store.append(machineWide(time, 90, 5));
  EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(HistoryStoreTest, LargeTimesWhoseSecondsAreStillToldApartAreStored) {
  store.append(machineWide(600'000'000'000'000.0, 30, 5));
  EXPECT_THAT(rows(), ElementsAre(StoredRow{599'999'999'999'940, 60, "", "cpu", 150, 30, 5}));
}

TEST_F(HistoryStoreTest, MachineWideReadingAddsValueTimesSeconds) {
  store.append(machineWide(1'000, 30, 50));
  EXPECT_THAT(rows(), ElementsAre(StoredRow{960, 60, "", "cpu", 1'500, 30, 50}));
}

TEST_F(HistoryStoreTest, SampleAcrossTheMinuteIsSplitInProportion) {
  store.append(machineWide(1'210, 20, 10));
  EXPECT_THAT(rows(), ElementsAre(StoredRow{1'140, 60, "", "cpu", 100, 10, 10},
                                  StoredRow{1'200, 60, "", "cpu", 100, 10, 10}));
}

TEST_F(HistoryStoreTest, LongestSampleMayReachOverThreeBuckets) {
  store.append(machineWide(1'270, 90, 2));
  EXPECT_THAT(rows(), ElementsAre(StoredRow{1'140, 60, "", "cpu", 40, 20, 2},
                                  StoredRow{1'200, 60, "", "cpu", 120, 60, 2},
                                  StoredRow{1'260, 60, "", "cpu", 20, 10, 2}));
}

TEST_F(HistoryStoreTest, SampleEndingOnTheMinuteStaysInItsBucket) {
  store.append(machineWide(1'200, 60, 3));
  EXPECT_THAT(rows(), ElementsAre(StoredRow{1'140, 60, "", "cpu", 180, 60, 3}));
}

TEST_F(HistoryStoreTest, SamplesOfOneBucketAddUpAndKeepTheLargestPeak) {
  store.append(machineWide(1'000, 10, 50));
  store.append(machineWide(1'010, 10, 20));
  EXPECT_THAT(rows(), ElementsAre(StoredRow{960, 60, "", "cpu", 700, 20, 50}));
}

TEST_F(HistoryStoreTest, PeakOfNegativeValuesIsTheOneNearestToZero) {
  store.append(machineWide(1'000, 10, -5));
  store.append(machineWide(1'010, 10, -9));
  EXPECT_THAT(rows(), ElementsAre(StoredRow{960, 60, "", "cpu", -140, 20, -5}));
}

TEST_F(HistoryStoreTest, TimesBefore1970FallIntoTheBucketBelow) {
  store.append(machineWide(-50, 20, 10));
  EXPECT_THAT(rows(), ElementsAre(StoredRow{-120, 60, "", "cpu", 100, 10, 10},
                                  StoredRow{-60, 60, "", "cpu", 100, 10, 10}));
  EXPECT_THAT(store.query(MetricID::Cpu, "", Date::since1970(-120), Date::since1970(-61)), SizeIs(1));
}

TEST_F(HistoryStoreTest, OnlyAvailableReadingsWithAFiniteValueAreStored) {
  auto snapshot = snapshotAt(kNoon, 30);
  const auto add = [&](MetricID metric, std::optional<double> value, MetricState state) {
    snapshot.readings.insert(
        {metric, MetricReading(value, MetricUnit::Percent, "kernel", state, Date{0}, std::nullopt)});
  };
  add(MetricID::Gpu, 5.0, MetricState::Stale);
  add(MetricID::GpuMemory, 5.0, MetricState::Unsupported);
  add(MetricID::Battery, 5.0, MetricState::PermissionRequired);
  add(MetricID::BatteryHealth, 5.0, MetricState::WarmingUp);
  add(MetricID::CpuUser, kNaN, MetricState::Available);
  snapshot.readings.insert(reading(MetricID::CpuIdle, 1.0)).first->second.value = kNaN;
  snapshot.readings.insert(reading(MetricID::CpuSystem, 1.0)).first->second.value = kInfinity;
  snapshot.readings.insert(reading(MetricID::DiskFree, 1.0)).first->second.value = std::nullopt;
  add(MetricID::MemoryUsed, 7.0, MetricState::Available);
  store.append(snapshot);
  EXPECT_THAT(rows(), ElementsAre(StoredRow{static_cast<std::int64_t>(kNoon) - 60, 60, "", "memoryUsed", 210,
                                            30, 7}));
}

TEST_F(HistoryStoreTest, EmptySnapshotStoresNothing) {
  store.append(snapshotAt(kNoon, 30));
  EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(HistoryStoreTest, SevenMetricsOfAnAppAreStoredUnderItsId) {
  store.append(withHelper(1'000, 990));
  EXPECT_THAT(rows(), ElementsAre(StoredRow{960, 60, "org.example.editor", "cpu", 20, 2, 10},
                                  StoredRow{960, 60, "org.example.editor", "diskRead", 24, 2, 12},
                                  StoredRow{960, 60, "org.example.editor", "diskWrite", 26, 2, 13},
                                  StoredRow{960, 60, "org.example.editor", "download", 14, 1, 14},
                                  StoredRow{960, 60, "org.example.editor", "energyImpact", 16, 1, 16},
                                  StoredRow{960, 60, "org.example.editor", "memoryUsed", 22, 2, 11},
                                  StoredRow{960, 60, "org.example.editor", "upload", 15, 1, 15}));
}

TEST_F(HistoryStoreTest, AbsentAndNonFiniteAppFiguresAreSkipped) {
  auto snapshot = snapshotAt(1'000, 2);
  AppUsage app = appUsing("a", 10);
  app.cpu = std::nullopt;
  app.diskRead = kNaN;
  app.diskWrite = -kInfinity;
  snapshot.apps.push_back(app);
  store.append(snapshot);
  EXPECT_THAT(rows(), ElementsAre(StoredRow{960, 60, "a", "memoryUsed", 22, 2, 11}));
}

// Helper figures.

TEST_F(HistoryStoreTest, WithoutAHelperTimestampHelperFiguresAreNotStored) {
  auto snapshot = withHelper(1'000, 990);
  snapshot.advancedTimestamp.reset();
  snapshot.readings.insert(reading(MetricID::Gpu, 3, "Apple powermetrics", 990));
  store.append(snapshot);
  EXPECT_THAT(rows(), SizeIs(4));
  EXPECT_THAT(rows("", "gpu"), IsEmpty());
}

TEST_F(HistoryStoreTest, SameHelperTimestampIsStoredOnce) {
  store.append(withHelper(1'000, 990));
  store.append(withHelper(1'002, 990));
  EXPECT_THAT(rows("org.example.editor", "download"),
              ElementsAre(StoredRow{960, 60, "org.example.editor", "download", 14, 1, 14}));
  EXPECT_THAT(rows("org.example.editor", "cpu"),
              ElementsAre(StoredRow{960, 60, "org.example.editor", "cpu", 40, 4, 10}));
  store.append(withHelper(1'004, 991));
  EXPECT_THAT(rows("org.example.editor", "download"),
              ElementsAre(StoredRow{960, 60, "org.example.editor", "download", 28, 2, 14}));
}

TEST_F(HistoryStoreTest, AnotherTimestampIsFreshAlsoWhenItIsOlder) {
  store.append(withHelper(1'000, 990));
  store.append(withHelper(1'002, 980));
  store.append(withHelper(1'004, 990));
  EXPECT_EQ(rows("org.example.editor", "upload").front().weight, 3);
}

TEST_F(HistoryStoreTest, SnapshotThatIsRefusedDoesNotUseUpItsHelperTimestamp) {
  auto refused = withHelper(1'000, 990);
  refused.interval = 91;
  store.append(refused);
  store.append(withHelper(1'002, 990));
  EXPECT_THAT(rows("org.example.editor", "download"), SizeIs(1));
}

TEST_F(HistoryStoreTest, AfterReopeningTheSameHelperTimestampIsFreshAgain) {
  store.append(withHelper(1'000, 990));
  MonitorHistoryStore(file).append(withHelper(1'002, 990));
  EXPECT_EQ(rows("org.example.editor", "download").front().weight, 2);
}

TEST_F(HistoryStoreTest, HelperReadingIsTimedByItselfAndHelperAppFiguresByTheSnapshot) {
  auto snapshot = withHelper(1'000, 910, 5);
  snapshot.readings.insert(reading(MetricID::Gpu, 3, "Apple powermetrics", 850));
  snapshot.readings.insert(reading(MetricID::PowerWatts, 4, "apple powermetrics", 850));
  store.append(snapshot);
  EXPECT_THAT(rows("", "gpu"), ElementsAre(StoredRow{840, 60, "", "gpu", 15, 5, 3}));
  EXPECT_THAT(rows("", "powerWatts"), ElementsAre(StoredRow{960, 60, "", "powerWatts", 8, 2, 4}));
  EXPECT_THAT(rows("org.example.editor", "download"),
              ElementsAre(StoredRow{900, 60, "org.example.editor", "download", 70, 5, 14}));
}

TEST_F(HistoryStoreTest, RowsWhoseWeightIsOutsideZeroToNinetyAreSkippedAndTheOthersStored) {
  for (const double interval : {0.0, -1.0, 90.5, kNaN, kInfinity}) {
    store.clear();
    store.append(withHelper(1'000, 990, interval));
    EXPECT_THAT(rows(), SizeIs(4)) << interval;
  }
  store.clear();
  store.append(withHelper(1'000, 990, 90));
  EXPECT_THAT(rows("org.example.editor", "download"), SizeIs(2));  // 900…990, exactly two buckets' worth
}

TEST_F(HistoryStoreTest, HelperTimesThatAreNotFiniteSkipOnlyTheirRows) {
  for (const double time : {kNaN, kInfinity, -kInfinity, 1e300}) {
    store.clear();
    store.append(withHelper(1'000, time));
    EXPECT_THAT(rows(), SizeIs(4)) << time;
  }
}

// Failures.

TEST_F(HistoryStoreTest, RowThatCannotBeSavedUndoesTheWholeSnapshot) {
  store.append(machineWide(1'000, 10, -std::numeric_limits<double>::max()));  // the total is minus infinity
  const auto before = rows();
  auto snapshot =
      machineWide(1'010, 10, std::numeric_limits<double>::max());  // and their sum is not a number
  snapshot.apps.push_back(appUsing("a", 1));
  try {
    store.append(snapshot);
    FAIL() << "stored";
  } catch (const MonitorStorageError& error) {
    EXPECT_STREQ(error.what(), "Monitor history: Could not save a sample");
  }
  EXPECT_EQ(rows(), before);
  store.append(withHelper(2'000, 990));  // and no transaction was left open
  EXPECT_EQ(rows().size(), before.size() + 7);
}

TEST_F(HistoryStoreTest, FailedAppendDoesNotUseUpItsHelperTimestamp) {
  store.append(machineWide(1'000, 10, -std::numeric_limits<double>::max()));
  auto snapshot = withHelper(1'010, 990);
  snapshot.readings.insert(reading(MetricID::Cpu, std::numeric_limits<double>::max()));
  EXPECT_THROW(store.append(snapshot), MonitorStorageError);
  store.append(withHelper(1'010, 990));
  EXPECT_THAT(rows("org.example.editor", "download"), SizeIs(1));
}

TEST_F(HistoryStoreTest, DroppedTableIsReportedInTheStoresOwnWords) {
  fakes::run(file, "DROP TABLE samples");
  const auto message = [](const auto& operation) -> std::string {
    try {
      operation();
    } catch (const MonitorStorageError& error) {
      return error.message();
    }
    return "nothing thrown";
  };
  // SQLite notices another connection's change of the schema at the first step.
  EXPECT_EQ(message([&] { store.append(machineWide(1'000, 30, 1)); }), "Could not save a sample");
  EXPECT_EQ(message([&] { store.append(machineWide(1'000, 30, 1)); }), "Could not prepare history query");
  EXPECT_EQ(message([&] { (void)everything(MetricID::Cpu, ""); }), "Could not prepare history query");
  EXPECT_EQ(message([&] { (void)store.coverage(); }), "Could not prepare history query");
  EXPECT_EQ(message([&] { store.clear(); }), "no such table: samples");
  EXPECT_EQ(message([&] { store.maintain(Date::since1970(kNoon), 1, 0); }), "no such table: samples");
}

// Reading.

TEST_F(HistoryStoreTest, QueryGivesMeanPeakCoverageAndResolution) {
  store.append(machineWide(1'000, 10, 50));
  store.append(machineWide(1'010, 10, 20));
  EXPECT_THAT(everything(MetricID::Cpu, ""), ElementsAre(HistoryPoint{Date::since1970(960), 35, 50, 20, 60}));
}

TEST_F(HistoryStoreTest, QueryOfAnEmptyRangeIsEmpty) {
  store.append(machineWide(1'000, 30, 50));
  EXPECT_THAT(store.query(MetricID::Cpu, "", Date::since1970(961), Date::since1970(2'000)), IsEmpty());
  EXPECT_THAT(store.query(MetricID::Cpu, "", Date::since1970(0), Date::since1970(959)), IsEmpty());
  EXPECT_THAT(store.query(MetricID::Cpu, "", Date::since1970(2'000), Date::since1970(0)), IsEmpty());
  EXPECT_THAT(store.query(MetricID::Cpu, "", Date::since1970(kNaN), Date::since1970(2'000)), IsEmpty());
}

TEST_F(HistoryStoreTest, QueryIncludesBothEndsOfItsRange) {
  store.append(machineWide(1'000, 30, 50));
  EXPECT_THAT(store.query(MetricID::Cpu, "", Date::since1970(960), Date::since1970(960)), SizeIs(1));
}

TEST_F(HistoryStoreTest, QuerySelectsOneAppAndOneMetric) {
  auto snapshot = machineWide(1'000, 2, 1);
  snapshot.apps = {appUsing("a", 10), appUsing("b", 20)};
  store.append(snapshot);
  EXPECT_EQ(everything(MetricID::Cpu, "").at(0).value, 1);
  EXPECT_EQ(everything(MetricID::Cpu, "a").at(0).value, 10);
  EXPECT_EQ(everything(MetricID::DiskWrite, "b").at(0).value, 23);
  EXPECT_THAT(everything(MetricID::DiskWrite, ""), IsEmpty());
  EXPECT_THAT(everything(MetricID::Cpu, "c"), IsEmpty());
}

TEST_F(HistoryStoreTest, RowsWithoutWeightAreNeverReturned) {
  fakes::run(file, "INSERT INTO samples VALUES(960,60,'','cpu',10,0,10),(1020,60,'','cpu',10,-1,10)");
  EXPECT_THAT(everything(MetricID::Cpu, ""), IsEmpty());
}

TEST_F(HistoryStoreTest, QueryReturnsBothResolutionsByTime) {
  fakes::run(file,
             "INSERT INTO samples VALUES(1800,60,'','cpu',60,60,1),(900,900,'','cpu',1800,900,2),"
             "(960,60,'','cpu',180,60,3)");
  const auto points = everything(MetricID::Cpu, "");
  ASSERT_THAT(points, SizeIs(3));
  EXPECT_EQ(points[0].resolution, 900);
  EXPECT_EQ(points[1].resolution, 60);
  EXPECT_EQ(points[2].date, Date::since1970(1'800));
}

TEST_F(HistoryStoreTest, QueryReturnsTheOldestFiveThousandPoints) {
  fakes::run(file,
             "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i<5000) "
             "INSERT INTO samples SELECT i*60,60,'','cpu',60,60,1 FROM n");
  const auto points = everything(MetricID::Cpu, "");
  ASSERT_THAT(points, SizeIs(5'000));
  EXPECT_EQ(points.back().date, Date::since1970(4'999 * 60));
  EXPECT_THAT(store.query(MetricID::Cpu, "", Date::since1970(60), Date::since1970(1e12)), SizeIs(5'000));
}

TEST_F(HistoryStoreTest, TextIsNeverReadAsSql) {
  auto snapshot = snapshotAt(1'000, 2);
  const std::string id = "'); DROP TABLE samples; --";
  snapshot.apps.push_back(appUsing(id, 1));
  store.append(snapshot);
  EXPECT_THAT(everything(MetricID::Cpu, id), SizeIs(1));
}

// Extent and size.

TEST_F(HistoryStoreTest, CoverageOfAnEmptyHistoryHasNoEndsAndTheSizeOfThreeFiles) {
  const auto coverage = store.coverage();
  EXPECT_EQ(coverage.start, std::nullopt);
  EXPECT_EQ(coverage.end, std::nullopt);
  const auto size = [&](const char* suffix) {
    return static_cast<std::int64_t>(fs::file_size(file.string() + suffix));
  };
  EXPECT_EQ(coverage.bytes, size("") + size("-wal") + size("-shm"));
  EXPECT_GT(size("-wal"), 0);
  EXPECT_GT(size("-shm"), 0);
}

TEST_F(HistoryStoreTest, CoverageSpansOldestToNewestBucketOverAllSeries) {
  store.append(machineWide(1'000, 10, 1));
  auto snapshot = snapshotAt(5'000, 2);
  snapshot.apps.push_back(appUsing("a", 1));
  store.append(snapshot);
  EXPECT_EQ(store.coverage().start, Date::since1970(960));
  EXPECT_EQ(store.coverage().end, Date::since1970(4'980));
}

TEST_F(HistoryStoreTest, CompanionThatIsMissingAddsNothingToTheSize) {
  store.append(machineWide(1'000, 10, 1));
  const auto with = store.coverage().bytes;
  const auto shm = static_cast<std::int64_t>(fs::file_size(file.string() + "-shm"));
  fs::rename(file.string() + "-shm", folder / "moved");
  EXPECT_EQ(store.coverage().bytes, with - shm);
  fs::rename(folder / "moved", file.string() + "-shm");
}

}  // namespace
}  // namespace monitor
