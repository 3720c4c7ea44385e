// SPDX-License-Identifier: MIT
// The program is killed in the middle of its work, again and again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <random>

#include "MonitorCore/MonitorHistoryStore.h"
#include "Tests/Integration/HistoryChild.h"
#include "Tests/MonitorCore/HistoryTestSupport.h"

namespace monitor {
namespace {

namespace fs = std::filesystem;
using fakes::HistoryChild;
using fakes::storedRows;
using Rows = std::vector<fakes::StoredRow>;

constexpr double kNow = 1'731'801'600.0;
constexpr std::int64_t kDayBefore = 1'731'715'200;
constexpr std::size_t kApps = 60;

int rounds() {
  return std::getenv("VESK_LONG") == nullptr ? 20 : 200;
}

// Snapshot `index` has a minute of its own.
MonitorSnapshot snapshotNumber(int index) {
  auto snapshot = fakes::snapshotAt(kNow + index * 60.0 + 30, 10);
  for (std::size_t app = 0; app < kApps; ++app) {
    snapshot.apps.push_back(fakes::appUsing("org.example.app-" + std::to_string(app), 10));
  }
  return snapshot;
}

TEST(HistoryCrashTest, KilledWhileAppendingLosesNoSnapshotThatWasStored) {
  std::mt19937 random(11);
  const fakes::TemporaryFolder folder;
  fs::path file;
  int first = 0;
  for (int round = 0; round < rounds(); ++round) {
    SCOPED_TRACE(testing::Message() << "round " << round);
    if (round % 20 == 0) {  // a new history before looking through the old one takes long
      file = folder / ("history-" + std::to_string(round));
      first = 0;
    }
    HistoryChild child([&](const HistoryChild::Report& report) {
      MonitorHistoryStore store(file);
      for (int index = first;; ++index) {
        store.append(snapshotNumber(index));
        report(index);
      }
      return 0;
    });
    const int enough = first + std::uniform_int_distribution(0, 25)(random);
    int stored = first - 1;
    while (stored < enough) {
      const auto index = child.next();
      ASSERT_TRUE(index.has_value()) << "the child ended by itself";
      stored = *index;
    }
    usleep(std::uniform_int_distribution(0U, 3'000U)(random));
    child.kill();
    while (const auto index = child.next()) stored = *index;
    child.wait();

    ASSERT_EQ(fakes::integrity(file), "ok");
    std::vector<std::size_t> rowsOfSnapshot;
    for (const auto& row : storedRows(file)) {
      const auto index = static_cast<std::size_t>((row.t - static_cast<std::int64_t>(kNow)) / 60);
      if (rowsOfSnapshot.size() <= index) rowsOfSnapshot.resize(index + 1);
      ++rowsOfSnapshot[index];
    }
    // All that were reported, and at most the one that had no time to be, each of them whole.
    ASSERT_GE(rowsOfSnapshot.size(), static_cast<std::size_t>(stored + 1));
    ASSERT_LE(rowsOfSnapshot.size(), static_cast<std::size_t>(stored + 2));
    EXPECT_THAT(rowsOfSnapshot, testing::Each(kApps * 4));
    first = static_cast<int>(rowsOfSnapshot.size());
  }
}

TEST(HistoryCrashTest, KilledDuringMaintenanceStopsBetweenItsTransactions) {
  std::mt19937 random(12);
  const fakes::TemporaryFolder folder;
  const fs::path original = folder / "original.sqlite";
  const fs::path file = folder / "history.sqlite";
  { const MonitorHistoryStore created(original); }
  fakes::run(original,
             "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i<2879) "
             "INSERT INTO samples SELECT " +
                 std::to_string(kDayBefore) +
                 "-86400+i*60,60,'an.app.'||(i%3),'cpu',60,60,1 FROM n; PRAGMA wal_checkpoint(TRUNCATE)");
  const auto copy = [&] {
    for (const char* suffix : {"-wal", "-shm"}) fs::remove(file.string() + suffix);
    fs::copy_file(original, file, fs::copy_options::overwrite_existing);
  };
  const auto maintain = [&](std::int64_t bytes) {
    MonitorHistoryStore(file).maintain(Date::since1970(kNow), 30, bytes);
  };

  std::vector<Rows> allowed{storedRows(original)};
  copy();
  maintain(1'000'000'000);
  allowed.push_back(storedRows(file));
  while (!allowed.back().empty()) {
    fakes::run(file, "DELETE FROM samples WHERE t IN (SELECT DISTINCT t FROM samples ORDER BY t LIMIT 60)");
    allowed.push_back(storedRows(file));
  }
  copy();
  const auto start = std::chrono::steady_clock::now();
  maintain(0);
  const auto duration =
      std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start).count();

  int between = 0;
  for (int round = 0; round < rounds(); ++round) {
    SCOPED_TRACE(testing::Message() << "round " << round);
    copy();
    HistoryChild child([&](const HistoryChild::Report& report) {
      MonitorHistoryStore store(file);
      report(0);
      store.maintain(Date::since1970(kNow), 30, 0);
      return 0;
    });
    ASSERT_TRUE(child.next().has_value());
    usleep(static_cast<useconds_t>(std::uniform_int_distribution<long>(0, duration)(random)));
    child.kill();
    child.wait();

    ASSERT_EQ(fakes::integrity(file), "ok");
    const Rows rows = storedRows(file);
    ASSERT_THAT(allowed, testing::Contains(rows));
    if (rows != allowed.front() && rows != allowed.back()) ++between;
    MonitorHistoryStore(file).append(snapshotNumber(0));
    EXPECT_EQ(storedRows(file).size(), rows.size() + kApps * 4);
  }
  RecordProperty("killedBetweenTransactions", between);
}

}  // namespace
}  // namespace monitor
