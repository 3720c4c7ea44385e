// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <thread>

#include "MonitorCore/MonitorHistoryStore.h"
#include "Tests/MonitorCore/HistoryTestSupport.h"

namespace monitor {
namespace {

// Four threads on one store: two that append to series of their own, one that reads, one that maintains.
TEST(HistoryThreadTest, OperationsOfFourThreadsAreSerialised) {
  constexpr int kSnapshots = 60;
  constexpr double kStart = 1'731'801'600.0;
  const fakes::TemporaryFolder folder;
  MonitorHistoryStore store(folder / "history.sqlite");
  const auto writer = [&](const char* app) {
    for (int index = 0; index < kSnapshots; ++index) {
      auto snapshot = fakes::snapshotAt(kStart + index * 2.0 + 2, 2);
      snapshot.apps.push_back(fakes::appUsing(app, 10));
      snapshot.advancedTimestamp = Date::since1970(kStart + index);
      store.append(snapshot);
    }
  };
  const auto reader = [&] {
    for (int round = 0; round < kSnapshots; ++round) {
      for (const auto& point :
           store.query(MetricID::Cpu, "a", Date::since1970(0), Date::since1970(kStart * 2))) {
        EXPECT_DOUBLE_EQ(point.value, 10);
      }
      EXPECT_GT(store.coverage().bytes, 0);
    }
  };
  const auto keeper = [&] {
    for (int round = 0; round < 10; ++round) store.maintain(Date::since1970(kStart), 30, 1'000'000'000);
  };
  std::thread threads[]{std::thread(writer, "a"), std::thread(writer, "b"), std::thread(reader),
                        std::thread(keeper)};
  for (auto& thread : threads) thread.join();

  for (const char* app : {"a", "b"}) {
    double seconds = 0.0;
    for (const auto& point :
         store.query(MetricID::Cpu, app, Date::since1970(0), Date::since1970(kStart * 2))) {
      seconds += point.coverage;
    }
    EXPECT_DOUBLE_EQ(seconds, 2.0 * kSnapshots) << app;
  }
}

// Stores are independent of each other, also on one file.
TEST(HistoryThreadTest, TwoStoresOnOneFileTakeTurns) {
  const fakes::TemporaryFolder folder;
  const auto file = folder / "history.sqlite";
  MonitorHistoryStore first(file);
  MonitorHistoryStore second(file);
  const auto writer = [](MonitorHistoryStore& store, const char* app) {
    for (int index = 0; index < 40; ++index) {
      auto snapshot = fakes::snapshotAt(1'000 + index, 1);
      snapshot.apps.push_back(fakes::appUsing(app, 10));
      store.append(snapshot);
    }
  };
  std::thread a(writer, std::ref(first), "a");
  std::thread b(writer, std::ref(second), "b");
  a.join();
  b.join();
  double weight = 0.0;
  for (const auto& row : fakes::storedRows(file)) weight += row.weight;
  EXPECT_DOUBLE_EQ(weight, 2 * 40 * 4);
}

}  // namespace
}  // namespace monitor
