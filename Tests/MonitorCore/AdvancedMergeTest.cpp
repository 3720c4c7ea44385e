// SPDX-License-Identifier: MIT
#include "MonitorCore/AdvancedMerge.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "MonitorCore/AppAggregator.h"

namespace monitor {
namespace {

ProcessSample process(std::int32_t pid, std::string bundle) {
  ProcessSample sample;
  sample.key = {pid, 5'000};
  sample.parentPID = 1;
  sample.name = bundle;
  sample.bundleID = std::move(bundle);
  return sample;
}

MonitorSnapshot snapshotOf(std::vector<ProcessSample> processes) {
  MonitorSnapshot snapshot;
  snapshot.timestamp = Date{100};
  snapshot.apps = AppAggregator::group(std::move(processes));
  return snapshot;
}

MetricReading reading(double value) {
  return {value, MetricUnit::Watts, std::string(kPowermetricsSource), MetricState::Available, Date{99}, {}};
}

TEST(AdvancedMerge, ReadingsTimeAndIntervalComeFromTheSample) {
  MonitorSnapshot snapshot = snapshotOf({});
  AdvancedSample sample{Date{99}, 1.25, {{MetricID::PowerWatts, reading(7)}}, {}, {"note"}};
  mergeAdvanced(snapshot, sample);
  EXPECT_EQ(snapshot.readings.at(MetricID::PowerWatts), reading(7));
  EXPECT_EQ(snapshot.advancedTimestamp, Date{99});
  EXPECT_EQ(snapshot.advancedInterval, 1.25);
  EXPECT_EQ(snapshot.timestamp, Date{100});
  sample.readings.at(MetricID::PowerWatts) = reading(8);
  mergeAdvanced(snapshot, sample);
  EXPECT_EQ(snapshot.readings.at(MetricID::PowerWatts), reading(8)) << "a later sample replaces";
}

TEST(AdvancedMerge, SumsAreThoseTheAggregatorWouldForm) {
  std::vector<ProcessSample> processes{process(1, "a"), process(2, "a"), process(3, "b")};
  MonitorSnapshot snapshot = snapshotOf(processes);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  mergeAdvanced(
      snapshot,
      {Date{99}, 1.0, {}, {{{1, 5'000}, 10.0, 0.0, 1.5}, {{2, 5'000}, 5.0, std::nullopt, nan}}, {}});
  processes[0].download = 10.0;
  processes[0].upload = 0.0;
  processes[0].energy = 1.5;
  processes[1].download = 5.0;
  processes[1].energy = nan;
  const auto expected = AppAggregator::group(processes);
  ASSERT_EQ(snapshot.apps.size(), 2U);
  for (std::size_t index = 0; index < 2; ++index) {
    EXPECT_EQ(snapshot.apps[index].id, expected[index].id);
    EXPECT_EQ(snapshot.apps[index].download, expected[index].download);
    EXPECT_EQ(snapshot.apps[index].upload, expected[index].upload);
    EXPECT_EQ(snapshot.apps[index].energy, expected[index].energy);
  }
  EXPECT_EQ(snapshot.apps[0].energy, 1.5);
  EXPECT_FALSE(snapshot.apps[1].energy) << "nothing is known of the other app";
}

TEST(AdvancedMerge, AProcessThatReusesAPidGetsNothing) {
  MonitorSnapshot snapshot = snapshotOf({process(1, "a")});
  mergeAdvanced(snapshot, {Date{99}, 1.0, {}, {{{1, 4'999}, 10.0, 1.0, 1.0}}, {}});
  EXPECT_FALSE(snapshot.apps[0].download);
  EXPECT_FALSE(snapshot.apps[0].processes[0].download);
}

TEST(AppAggregatorProcesses, AreThoseOfTheSampleByPid) {
  const std::vector<ProcessSample> processes{process(1, "a"), process(2, "b"), process(3, "a")};
  EXPECT_EQ(AppAggregator::processesOf(AppAggregator::group(processes)), processes);
  EXPECT_TRUE(AppAggregator::processesOf({}).empty());
}

TEST(AdvancedMerge, ProcessesOfAHelperWithAnotherBootTimeAreTheSameOnes) {
  constexpr std::uint64_t kOneSecondLater = 1'005'000;
  MonitorSnapshot snapshot = snapshotOf({process(1, "a"), process(2, "b")});
  mergeAdvanced(
      snapshot,
      {Date{99}, 1.0, {}, {{{1, kOneSecondLater}, 10.0, {}, 1.5}, {{2, kOneSecondLater}, {}, {}, 2.5}}, {}});
  ASSERT_EQ(snapshot.apps.size(), 2U);
  EXPECT_EQ(snapshot.apps[0].download, 10.0);
  EXPECT_EQ(snapshot.apps[0].processes[0].key, (ProcessKey{1, 5'000}));
  EXPECT_EQ(snapshot.apps[1].energy, 2.5);
}

}  // namespace
}  // namespace monitor
