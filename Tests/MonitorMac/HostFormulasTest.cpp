// SPDX-License-Identifier: MIT
#include "MonitorMac/HostFormulas.h"

#include <gtest/gtest.h>

#include <limits>

namespace monitor {
namespace {

TEST(CpuSharesTest, NiceTimeCountsAsUserTime) {
  const auto shares = cpuShares({100, 100, 100, 100}, {110, 120, 160, 110});
  ASSERT_TRUE(shares);
  EXPECT_DOUBLE_EQ(shares->user, 20.0);
  EXPECT_DOUBLE_EQ(shares->system, 20.0);
  EXPECT_DOUBLE_EQ(shares->idle, 60.0);
  EXPECT_DOUBLE_EQ(shares->total, 40.0);
}

TEST(CpuSharesTest, NothingWhenAnyCounterWentBackwards) {
  const CpuTicks previous{10, 10, 10, 10};
  EXPECT_FALSE(cpuShares(previous, {9, 20, 20, 20}));
  EXPECT_FALSE(cpuShares(previous, {20, 9, 20, 20}));
  EXPECT_FALSE(cpuShares(previous, {20, 20, 9, 20}));
  EXPECT_FALSE(cpuShares(previous, {20, 20, 20, 9}));
  EXPECT_TRUE(cpuShares(previous, {10, 10, 11, 10}));
}

TEST(CpuSharesTest, NothingWhenNoTimePassed) {
  EXPECT_FALSE(cpuShares({1, 2, 3, 4}, {1, 2, 3, 4}));
}

TEST(MachUsedMemoryTest, IsInternalWiredAndCompressedWithoutPurgeable) {
  EXPECT_EQ(machUsedMemory({10, 20, 30, 5}, 4096, 1'000'000'000), 55U * 4096U);
}

TEST(MachUsedMemoryTest, NeverNegativeAndNeverAbovePhysicalMemory) {
  EXPECT_EQ(machUsedMemory({1, 1, 1, 4}, 4096, 1'000'000), 0U);
  EXPECT_EQ(machUsedMemory({1'000, 0, 0, 0}, 4096, 1'000'000), 1'000'000U);
}

TEST(PressureTest, LevelOneIsNormalTwoAndThreeWarnFourIsCritical) {
  EXPECT_EQ(pressureFromLevel(0), 0.0);
  EXPECT_EQ(pressureFromLevel(1), 0.0);
  EXPECT_EQ(pressureFromLevel(2), 1.0);
  EXPECT_EQ(pressureFromLevel(3), 1.0);
  EXPECT_EQ(pressureFromLevel(4), 2.0);
  EXPECT_EQ(pressureFromLevel(5), 2.0);
  EXPECT_EQ(pressureFromLevel(-1), 0.0);
}

TEST(BatteryPercentTest, NeedsBothNumbersAndAPositiveMaximum) {
  EXPECT_DOUBLE_EQ(*batteryPercent({.internalBattery = true, .currentCapacity = 40, .maximumCapacity = 80}),
                   50.0);
  EXPECT_FALSE(batteryPercent({.internalBattery = true, .currentCapacity = 40, .maximumCapacity = 0}));
  EXPECT_FALSE(batteryPercent({.internalBattery = true, .currentCapacity = 40}));
  EXPECT_FALSE(batteryPercent({.internalBattery = true, .maximumCapacity = 80}));
}

TEST(BatteryHealthTest, RawCapacityAboveDesignGivesAHundredPercent) {
  EXPECT_DOUBLE_EQ(*batteryHealth({5'200, 5'000}), 100.0);
  EXPECT_DOUBLE_EQ(*batteryHealth({4'000, 5'000}), 80.0);
}

TEST(BatteryHealthTest, CapacitiesOfAHundredOrLessAreNone) {
  EXPECT_FALSE(batteryHealth({5'000, 100}));
  EXPECT_TRUE(batteryHealth({5'000, 101}));
  EXPECT_FALSE(batteryHealth({100, 5'000}));
  EXPECT_TRUE(batteryHealth({101, 5'000}));
  EXPECT_FALSE(batteryHealth({std::nullopt, 5'000}));
  EXPECT_FALSE(batteryHealth({5'000, std::nullopt}));
}

TEST(CpuPercentTest, OneSecondOfNanosecondsASecondIsOneCore) {
  EXPECT_DOUBLE_EQ(cpuPercent(1e9, 1.0), 100.0);
  EXPECT_DOUBLE_EQ(cpuPercent(24e6, 125.0 / 3.0), 100.0);
}

TEST(MachTimeUnitTest, IsOneNanosecondWithoutADenominator) {
  EXPECT_DOUBLE_EQ(machTimeUnitNanoseconds(125, 3), 125.0 / 3.0);
  EXPECT_DOUBLE_EQ(machTimeUnitNanoseconds(125, 0), 1.0);
}

}  // namespace
}  // namespace monitor
