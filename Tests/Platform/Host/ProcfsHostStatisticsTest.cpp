// SPDX-License-Identifier: MIT
#include "Platform/Linux/Host/ProcfsHostStatistics.h"

#include <gtest/gtest.h>

#include "Tests/Platform/Host/HostTree.h"

namespace monitor::platform {
namespace {

constexpr const char* kMeminfo =
    "MemTotal:       16000000 kB\n"
    "MemFree:         1000000 kB\n"
    "MemAvailable:   10000000 kB\n"
    "Unevictable:       65536 kB\n"
    "Zswap:             20480 kB\n";

class ProcfsHostStatisticsTest : public ::testing::Test {
 protected:
  void stat(const std::string& line) { tree.file("proc/stat", line + "\ncpu0 1 2 3 4\nbtime 1731700000\n"); }

  HostTree tree;
  ProcfsHostStatistics statistics{tree.files(), "/"};
};

TEST_F(ProcfsHostStatisticsTest, SumsTheKernelsClasses) {
  //        user nice system idle iowait irq softirq steal guest guest_nice
  stat("cpu  1000 20 300 4000 500 6 70 8 900 10");
  const auto ticks = statistics.cpuTicks();
  ASSERT_TRUE(ticks);
  EXPECT_EQ(ticks->user, 1000U);  // guest time is inside
  EXPECT_EQ(ticks->nice, 20U);
  EXPECT_EQ(ticks->system, 300U + 6U + 70U + 8U);
  EXPECT_EQ(ticks->idle, 4500U);
}

TEST_F(ProcfsHostStatisticsTest, FallingIowaitNeverLetsIdleTimeFall) {
  stat("cpu  100 0 100 4000 500 0 0 0 0 0");
  (void)statistics.cpuTicks();
  stat("cpu  110 0 100 4010 480 0 0 0 0 0");
  EXPECT_EQ(statistics.cpuTicks()->idle, 4500U);
  stat("cpu  120 0 100 4100 480 0 0 0 0 0");
  EXPECT_EQ(statistics.cpuTicks()->idle, 4580U);
}

TEST_F(ProcfsHostStatisticsTest, ProcessorThatGoesOfflineLetsNoSumFall) {
  stat("cpu  1000 10 1000 1000 0 0 0 0 0 0");
  (void)statistics.cpuTicks();
  stat("cpu  500 5 500 500 0 0 0 0 0 0");
  const auto ticks = statistics.cpuTicks();
  EXPECT_EQ(ticks->user, 1000U);
  EXPECT_EQ(ticks->nice, 10U);
  EXPECT_EQ(ticks->system, 1000U);
  EXPECT_EQ(ticks->idle, 1000U);
}

TEST_F(ProcfsHostStatisticsTest, OldKernelWithFourFieldsIsRead) {
  stat("cpu  1 2 3 4");
  EXPECT_EQ(statistics.cpuTicks()->system, 3U);
  stat("cpu  1 2 3");
  EXPECT_FALSE(statistics.cpuTicks());
}

TEST_F(ProcfsHostStatisticsTest, MissingOrBrokenCountersAreAbsent) {
  EXPECT_FALSE(statistics.cpuTicks());
  stat("cpu  1 x 3 4 5 6 7 8");
  EXPECT_FALSE(statistics.cpuTicks());
  tree.file("proc/stat", "intr 1 2 3\n");
  EXPECT_FALSE(statistics.cpuTicks());
}

TEST_F(ProcfsHostStatisticsTest, UsedMemoryIsWhatIsNotAvailable) {
  tree.file("proc/meminfo", kMeminfo);
  EXPECT_EQ(statistics.physicalMemory(), 16'000'000ULL * 1024);
  const auto report = statistics.memory();
  ASSERT_TRUE(report);
  EXPECT_EQ(report->used, 6'000'000ULL * 1024);
  EXPECT_EQ(report->wired, 65'536ULL * 1024);
  EXPECT_EQ(report->compressed, 20'480ULL * 1024);
}

TEST_F(ProcfsHostStatisticsTest, CompressedMemoryAddsEveryZramDevice) {
  tree.file("proc/meminfo", "MemTotal: 1000 kB\nMemAvailable: 400 kB\n");
  tree.file("sys/block/zram0/mm_stat", "  4096000  1000000  1200000  0 1300000 0 0 0\n");
  tree.file("sys/block/zram1/mm_stat", "  4096  100  8192  0 8192 0 0 0\n");
  tree.folder("sys/block/sda");
  EXPECT_EQ(statistics.memory()->compressed, 1'208'192U);
}

TEST_F(ProcfsHostStatisticsTest, WhatTheKernelDoesNotKnowIsAbsent) {
  tree.file("proc/meminfo", "MemTotal: 1000 kB\n");
  const auto report = statistics.memory();
  ASSERT_TRUE(report);
  EXPECT_FALSE(report->used);
  EXPECT_FALSE(report->wired);
  EXPECT_FALSE(report->compressed);
  tree.remove("proc/meminfo");
  EXPECT_FALSE(statistics.memory());
  EXPECT_FALSE(statistics.physicalMemory());
}

TEST_F(ProcfsHostStatisticsTest, PressureLevelsHaveTheirBoundsAtTenPercent) {
  const auto level = [this](const char* some, const char* full) {
    tree.file("proc/pressure/memory", std::string("some avg10=") + some +
                                          " avg60=99.00 avg300=0.00 total=1\nfull avg10=" + full +
                                          " avg60=99.00 avg300=0.00 total=1\n");
    return statistics.memoryPressureLevel();
  };
  EXPECT_EQ(level("0.00", "0.00"), 1);
  EXPECT_EQ(level("9.99", "0.00"), 1);
  EXPECT_EQ(level("10.00", "0.00"), 2);
  EXPECT_EQ(level("50.00", "9.99"), 2);
  EXPECT_EQ(level("50.00", "10.00"), 4);
}

TEST_F(ProcfsHostStatisticsTest, KernelWithoutPressureInformationGivesNoLevel) {
  EXPECT_FALSE(statistics.memoryPressureLevel());
  tree.file("proc/pressure/memory", "some avg10=x\n");
  EXPECT_FALSE(statistics.memoryPressureLevel());
}

TEST_F(ProcfsHostStatisticsTest, HomeVolumeIsTheFileSystemOfTheHomeFolder) {
  const auto volume = statistics.homeVolume();
  ASSERT_TRUE(volume);
  EXPECT_GT(*volume->total, 0U);
  EXPECT_LE(*volume->available, *volume->total);
  ProcfsHostStatistics missing(tree.files(), "/nonexistent/home");
  EXPECT_FALSE(missing.homeVolume());
}

}  // namespace
}  // namespace monitor::platform
