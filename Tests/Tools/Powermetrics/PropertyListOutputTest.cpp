// SPDX-License-Identifier: MIT
#include "Tools/powermetrics/PropertyListOutput.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "MonitorCore/AdvancedParser.h"

namespace monitor::powermetrics {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr Date kAt{786'000'000.0};

Options everything() {
  Options options;
  options.tasks = options.cpuPower = options.gpuPower = options.thermal = options.smc = true;
  options.processNetstats = options.processEnergy = true;
  return options;
}

platform::TaskReport task(std::int32_t pid, double energy) {
  return {.pid = pid, .name = "tool", .cpuSeconds = 0.5, .received = {}, .sent = {}, .energyImpact = energy};
}

platform::PowerReading full() {
  platform::PowerReading reading;
  reading.seconds = 1.25;
  reading.packageWatts = 12.5;
  reading.gpuShare = 0.25;
  reading.cpuCelsius = 61.5;
  reading.gpuCelsius = -5.0;
  reading.fanSpeeds = {0.0, 1842.0};
  reading.tasks = {task(7, 3.25)};
  reading.tasks[0].received = 5'000'000'000.0;
  reading.tasks[0].sent = 0.0;
  return reading;
}

std::optional<double> value(const AdvancedSample& sample, MetricID metric) {
  const auto found = sample.readings.find(metric);
  return found == sample.readings.end() ? std::nullopt : found->second.value;
}

AdvancedSample parsed(const platform::PowerReading& reading, const Options& options = everything()) {
  return AdvancedParser::parse(propertyList(reading, options, kAt), {{7, {7, 1}}, {8, {8, 2}}}, kAt);
}

TEST(PropertyListOutputTest, EveryFigureArrivesAtTheReader) {
  const AdvancedSample sample = parsed(full());
  EXPECT_EQ(sample.interval, 1.25);
  EXPECT_EQ(value(sample, MetricID::PowerWatts), 12.5);
  EXPECT_EQ(value(sample, MetricID::Gpu), 25.0);
  EXPECT_EQ(value(sample, MetricID::CpuTemperature), 61.5);
  EXPECT_EQ(value(sample, MetricID::GpuTemperature), -5.0);
  EXPECT_EQ(value(sample, MetricID::FanRPM), 1842.0);
  ASSERT_EQ(sample.processes.size(), 1U);
  EXPECT_EQ(sample.processes[0], (AdvancedProcessReading{{7, 1}, 4e9, 0.0, 3.25}));
}

TEST(PropertyListOutputTest, WhatIsUnknownIsAbsent) {
  platform::PowerReading reading;
  reading.seconds = 1.0;
  const std::string text = propertyList(reading, everything(), kAt);
  for (const char* key : {"processor", "gpu", "smc", "fans", "combined_power", "idle_ratio"})
    EXPECT_THAT(text, Not(HasSubstr(key)));
  const AdvancedSample sample = parsed(reading);
  EXPECT_TRUE(sample.readings.empty());
  EXPECT_TRUE(sample.processes.empty());
}

TEST(PropertyListOutputTest, UnknownBytesOfATaskAreAbsentWhileItsEnergyIsThere) {
  platform::PowerReading reading = full();
  reading.tasks[0].received.reset();
  reading.tasks[0].sent.reset();
  EXPECT_EQ(parsed(reading).processes.at(0),
            (AdvancedProcessReading{{7, 1}, std::nullopt, std::nullopt, 3.25}));
}

TEST(PropertyListOutputTest, OnlyWhatWasAskedForIsPrinted) {
  Options options;
  options.tasks = true;
  const std::string text = propertyList(full(), options, kAt);
  EXPECT_THAT(text, HasSubstr("<key>cputime_ns</key>"));
  for (const char* key : {"processor", "gpu", "smc", "network_recv_bytes", "energy_impact"})
    EXPECT_THAT(text, Not(HasSubstr(key)));
  EXPECT_THAT(propertyList(full(), Options(), kAt), Not(HasSubstr("<key>tasks</key>")));
}

TEST(PropertyListOutputTest, DateIsTheOneGiven) {
  EXPECT_THAT(propertyList(full(), everything(), kAt), HasSubstr("<date>2025-11-28T05:20:00Z</date>"));
}

TEST(PropertyListOutputTest, NameCannotLeaveItsElement) {
  platform::PowerReading reading = full();
  reading.tasks[0].name = "</string><key>pid</key><integer>8</integer>&";
  const AdvancedSample sample = parsed(reading);
  ASSERT_EQ(sample.processes.size(), 1U);
  EXPECT_EQ(sample.processes[0].key.pid, 7);
}

TEST(PropertyListOutputTest, FigureThatIsNoNumberIsAbsent) {
  platform::PowerReading reading = full();
  reading.packageWatts = std::numeric_limits<double>::infinity();
  reading.cpuCelsius = std::numeric_limits<double>::quiet_NaN();
  reading.tasks[0].received = 0x1p64;
  reading.tasks[0].sent = -1.0;
  const AdvancedSample sample = parsed(reading);
  EXPECT_EQ(value(sample, MetricID::PowerWatts), std::nullopt);
  EXPECT_EQ(value(sample, MetricID::CpuTemperature), std::nullopt);
  EXPECT_EQ(sample.processes.at(0).download, std::nullopt);
  EXPECT_EQ(sample.processes.at(0).upload, std::nullopt);
}

TEST(PropertyListOutputTest, MoreTasksThanAReaderTakesAreReducedToTheBusiest) {
  platform::PowerReading reading;
  reading.seconds = 1.0;
  for (std::int32_t pid = 1; pid <= 20'001; ++pid) reading.tasks.push_back(task(pid, pid == 7 ? 5.0 : 0.0));
  reading.tasks[7].received = 100.0;
  const std::string text = propertyList(reading, everything(), kAt);
  constexpr std::size_t kReadersLimit = 8'388'608;
  EXPECT_LT(text.size(), kReadersLimit);
  const AdvancedSample sample = AdvancedParser::parse(text, {{7, {7, 1}}, {8, {8, 2}}}, kAt);
  ASSERT_EQ(sample.processes.size(), 2U);
  EXPECT_EQ(sample.processes[0].energy, 5.0);
  EXPECT_EQ(sample.processes[1].download, 100.0);
}

}  // namespace
}  // namespace monitor::powermetrics
