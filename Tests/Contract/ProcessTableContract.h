// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "MonitorCore/Ports/ProcessTable.h"

namespace monitor::contract {

// What every ProcessTable does. The harness has
//   ProcessTable& table();
//   std::int32_t start();          a process that runs until it is ended; it has a parent, an executable and
//   a folder void end(std::int32_t pid);    returns when the process is gone std::uint32_t owner(); whose
//   processes start() makes std::int32_t parent();
template <class Harness>
class ProcessTableContract : public testing::Test {
 protected:
  Harness harness;

  // The start as keys have it.
  static std::uint64_t startOf(const ProcessRecord& record) {
    return record.startSeconds * 1'000'000 + record.startMicroseconds;
  }
};
TYPED_TEST_SUITE_P(ProcessTableContract);

TYPED_TEST_P(ProcessTableContract, RunningProcessIsListedOnce) {
  const std::int32_t pid = this->harness.start();
  const std::vector<std::int32_t> pids = this->harness.table().allPids();
  EXPECT_EQ(std::count(pids.begin(), pids.end(), pid), 1);
  EXPECT_TRUE(std::all_of(pids.begin(), pids.end(), [](std::int32_t each) { return each > 0; }));
  this->harness.end(pid);
}

TYPED_TEST_P(ProcessTableContract, RecordHasOwnerParentAndStart) {
  const std::int32_t pid = this->harness.start();
  const auto record = this->harness.table().record(pid);
  ASSERT_TRUE(record);
  EXPECT_EQ(record->owner, this->harness.owner());
  EXPECT_EQ(record->parent, static_cast<std::uint32_t>(this->harness.parent()));
  EXPECT_GT(record->startSeconds, 0U);
  EXPECT_LT(record->startMicroseconds, 1'000'000U);
  this->harness.end(pid);
}

TYPED_TEST_P(ProcessTableContract, StartStaysTheSameWhileTheProcessLives) {
  const std::int32_t pid = this->harness.start();
  const auto first = this->harness.table().record(pid);
  ASSERT_TRUE(first);
  for (int round = 0; round < 10; ++round) {
    const auto again = this->harness.table().record(pid);
    ASSERT_TRUE(again);
    EXPECT_EQ(this->startOf(*again), this->startOf(*first));
  }
  this->harness.end(pid);
}

TYPED_TEST_P(ProcessTableContract, LaterProcessDoesNotStartEarlier) {
  const std::int32_t first = this->harness.start();
  const std::int32_t second = this->harness.start();
  const auto older = this->harness.table().record(first);
  const auto younger = this->harness.table().record(second);
  ASSERT_TRUE(older && younger);
  EXPECT_LE(this->startOf(*older), this->startOf(*younger));
  this->harness.end(first);
  this->harness.end(second);
}

TYPED_TEST_P(ProcessTableContract, EndedProcessIsAbsentFromEveryRead) {
  const std::int32_t pid = this->harness.start();
  this->harness.end(pid);
  ProcessTable& table = this->harness.table();
  const std::vector<std::int32_t> pids = table.allPids();
  EXPECT_EQ(std::count(pids.begin(), pids.end(), pid), 0);
  EXPECT_FALSE(table.record(pid));
  EXPECT_EQ(table.executablePath(pid), "");
  EXPECT_FALSE(table.usage(pid));
  EXPECT_TRUE(table.listeningPorts(pid).empty());
  EXPECT_FALSE(table.workingDirectory(pid));
}

TYPED_TEST_P(ProcessTableContract, PidsThatNoProcessCanHaveAreAbsent) {
  for (const std::int32_t pid : {0, -1, -2'147'483'647}) {
    EXPECT_FALSE(this->harness.table().record(pid)) << pid;
    EXPECT_EQ(this->harness.table().executablePath(pid), "") << pid;
    EXPECT_FALSE(this->harness.table().usage(pid)) << pid;
  }
}

TYPED_TEST_P(ProcessTableContract, ExecutableAndFolderAreAbsolutePaths) {
  const std::int32_t pid = this->harness.start();
  EXPECT_EQ(this->harness.table().executablePath(pid).substr(0, 1), "/");
  EXPECT_LE(this->harness.table().executablePath(pid).size(), 4096U);
  const auto folder = this->harness.table().workingDirectory(pid);
  ASSERT_TRUE(folder);
  EXPECT_EQ(folder->substr(0, 1), "/");
  this->harness.end(pid);
}

TYPED_TEST_P(ProcessTableContract, CountersNeverFall) {
  const std::int32_t pid = this->harness.start();
  const auto first = this->harness.table().usage(pid);
  const auto second = this->harness.table().usage(pid);
  ASSERT_TRUE(first && second);
  EXPECT_LE(first->cpuTime, second->cpuTime);
  EXPECT_EQ(first->diskRead.has_value(), second->diskRead.has_value());
  EXPECT_LE(first->diskRead.value_or(0), second->diskRead.value_or(0));
  EXPECT_LE(first->diskWritten.value_or(0), second->diskWritten.value_or(0));
  EXPECT_GT(this->harness.table().cpuTimeUnitNanoseconds(), 0.0);
  this->harness.end(pid);
}

TYPED_TEST_P(ProcessTableContract, PortsAreAscendingAndDistinct) {
  const std::int32_t pid = this->harness.start();
  const std::vector<std::int64_t> ports = this->harness.table().listeningPorts(pid);
  EXPECT_TRUE(std::is_sorted(ports.begin(), ports.end()));
  EXPECT_EQ(std::adjacent_find(ports.begin(), ports.end()), ports.end());
  this->harness.end(pid);
}

REGISTER_TYPED_TEST_SUITE_P(ProcessTableContract, RunningProcessIsListedOnce, RecordHasOwnerParentAndStart,
                            StartStaysTheSameWhileTheProcessLives, LaterProcessDoesNotStartEarlier,
                            EndedProcessIsAbsentFromEveryRead, PidsThatNoProcessCanHaveAreAbsent,
                            ExecutableAndFolderAreAbsolutePaths, CountersNeverFall,
                            PortsAreAscendingAndDistinct);

}  // namespace monitor::contract
