// SPDX-License-Identifier: MIT
#include "MonitorCore/SnapshotRecording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "MonitorCore/Json/StrictJson.h"

namespace monitor {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

MonitorSnapshot fullSnapshot() {
  MonitorSnapshot snapshot{Date{753'451'200.5}, 5'000.25, 2.0, {}, {}, {{"mouse", "Mouse", 81.5}}, 3};
  snapshot.readings.insert(
      {MetricID::Cpu, MetricReading(12.5, MetricUnit::Percent, "kernel", MetricState::Available,
                                    Date{753'451'200.0}, "of the machine")});
  snapshot.readings.insert(
      {MetricID::Gpu, MetricReading(std::nullopt, MetricUnit::Percent, "Apple powermetrics",
                                    MetricState::PermissionRequired, Date{1}, std::nullopt)});
  AppUsage app;
  app.id = "org.example.editor";
  app.name = "Editor";
  app.bundleID = "org.example.editor";
  app.cpu = 3.5;
  app.memory = std::numeric_limits<std::uint64_t>::max();
  app.diskRead = 0.0;
  app.upload = 1e-9;
  snapshot.apps.push_back(app);
  snapshot.advancedTimestamp = Date{753'451'190.0};
  snapshot.advancedInterval = 5.0;
  return snapshot;
}

void expectEqual(const MonitorSnapshot& actual, const MonitorSnapshot& expected) {
  EXPECT_EQ(actual.timestamp, expected.timestamp);
  EXPECT_EQ(actual.uptime, expected.uptime);
  EXPECT_EQ(actual.interval, expected.interval);
  EXPECT_EQ(actual.readings, expected.readings);
  EXPECT_EQ(actual.apps, expected.apps);
  EXPECT_EQ(actual.accessories, expected.accessories);
  EXPECT_EQ(actual.restrictedProcessCount, expected.restrictedProcessCount);
  EXPECT_EQ(actual.advancedTimestamp, expected.advancedTimestamp);
  EXPECT_EQ(actual.advancedInterval, expected.advancedInterval);
}

std::string errorOf(std::string_view line) {
  try {
    (void)decodeSnapshot(line);
  } catch (const json::DecodeError& error) {
    return error.what();
  }
  return "nothing thrown";
}

TEST(SnapshotRecordingTest, LineReadsBackAsTheSameSnapshot) {
  const auto snapshot = fullSnapshot();
  const std::string line = encodeSnapshot(snapshot);
  EXPECT_EQ(line.find('\n'), std::string::npos);
  expectEqual(decodeSnapshot(line), snapshot);
}

TEST(SnapshotRecordingTest, AbsentFiguresHaveNoKey) {
  const std::string line = encodeSnapshot(fullSnapshot());
  EXPECT_THAT(line, HasSubstr(R"("diskRead":0.0,"upload":1e-09})"));
}

TEST(SnapshotRecordingTest, ProcessesOfAppsAreNotInIt) {
  auto snapshot = fullSnapshot();
  snapshot.apps[0].processes.emplace_back();
  EXPECT_THAT(decodeSnapshot(encodeSnapshot(snapshot)).apps[0].processes, IsEmpty());
}

TEST(SnapshotRecordingTest, OnlyTimestampAndIntervalAreRequired) {
  expectEqual(decodeSnapshot(R"({"timestamp": 5, "interval": 2})"), {Date{5}, 0.0, 2.0, {}, {}, {}, 0});
  EXPECT_THAT(errorOf(R"({"interval": 2})"), HasSubstr("timestamp"));
  EXPECT_THAT(errorOf(R"({"timestamp": 5})"), HasSubstr("interval"));
  EXPECT_THAT(errorOf(R"({"timestamp": 5, "interval": 2, "apps": [{"id": "a"}]})"),
              HasSubstr("at apps[0]: the required key \"memory\""));
}

TEST(SnapshotRecordingTest, NameOfAnAppIsItsIdWhereItIsNotWritten) {
  EXPECT_EQ(decodeSnapshot(R"({"timestamp":5,"interval":2,"apps":[{"id":"a","memory":1}]})").apps[0].name,
            "a");
}

TEST(SnapshotRecordingTest, NumbersThatJsonDoesNotHaveAreTexts) {
  auto snapshot = fullSnapshot();
  snapshot.timestamp = Date{-std::numeric_limits<double>::infinity()};
  snapshot.interval = std::numeric_limits<double>::quiet_NaN();
  snapshot.advancedTimestamp = Date{std::numeric_limits<double>::infinity()};
  snapshot.apps[0].cpu = std::numeric_limits<double>::quiet_NaN();
  const std::string line = encodeSnapshot(snapshot);
  EXPECT_THAT(line, HasSubstr(R"("timestamp":"-inf")"));
  const auto read = decodeSnapshot(line);
  EXPECT_EQ(read.timestamp, snapshot.timestamp);
  EXPECT_TRUE(std::isnan(read.interval));
  EXPECT_EQ(read.advancedTimestamp, snapshot.advancedTimestamp);
  EXPECT_TRUE(std::isnan(*read.apps[0].cpu));
  EXPECT_THAT(errorOf(R"({"timestamp": "NaN", "interval": 2})"), HasSubstr("\"nan\", \"inf\" or \"-inf\""));
}

TEST(SnapshotRecordingTest, WhatIsNoSnapshotIsRefusedWithItsPlace) {
  for (const char* line : {"", "[]", "5", "{", "{} {}", R"({"timestamp": 5, "interval": true})",
                           R"({"timestamp": 5, "interval": 2, "readings": {}})",
                           R"({"timestamp": 5, "interval": 2, "readings": ["cpu"]})",
                           R"({"timestamp": 5, "interval": 2, "readings": ["noise", {}]})",
                           R"({"timestamp": 5, "interval": 2, "apps": [{"id": "a", "memory": -1}]})",
                           R"({"timestamp": 5, "interval": 2, "apps": [{"id": "a", "memory": 1.5}]})",
                           R"({"timestamp": 5, "interval": 2, "accessories": [{}]})",
                           R"({"timestamp": 5, "interval": 2, "restrictedProcessCount": "none"})"}) {
    EXPECT_NE(errorOf(line), "nothing thrown") << line;
  }
}

}  // namespace
}  // namespace monitor
