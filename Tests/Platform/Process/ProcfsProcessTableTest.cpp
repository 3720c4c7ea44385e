// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/ProcfsProcessTable.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Linux/Process/BootTime.h"
#include "Tests/Platform/Process/ProcTree.h"

namespace monitor::platform {
namespace {

class ProcfsProcessTableTest : public testing::Test {
 protected:
  ProcTree tree;
  ProcfsProcessTable table{tree.proc(), std::make_shared<BootTime>(tree.proc())};

  // Start in microseconds since 1970, as keys are made of it.
  std::uint64_t start(std::int32_t pid) {
    const auto record = table.record(pid);
    return record ? record->startSeconds * 1'000'000 + record->startMicroseconds : 0;
  }
};

std::uint64_t microsecondsPerTick() {
  return 1'000'000U / static_cast<std::uint64_t>(::sysconf(_SC_CLK_TCK));
}

TEST_F(ProcfsProcessTableTest, StartIsTicksOfAMicrosecondCountPlusBootTime) {
  tree.boot(1'700'000'000).process(42, {.startTicks = 12'345});
  EXPECT_EQ(start(42), 12'345 * microsecondsPerTick() + 1'700'000'000U * 1'000'000ULL);
}

TEST_F(ProcfsProcessTableTest, RecordHasParentAndOwner) {
  tree.process(42, {.parent = 7});
  const auto record = table.record(42);
  ASSERT_TRUE(record);
  EXPECT_EQ(record->parent, 7U);
  EXPECT_EQ(record->owner, ::getuid());
}

TEST_F(ProcfsProcessTableTest, KeyStaysTheSameWhenTheBootTimeJumps) {
  tree.process(42);
  const std::uint64_t before = start(42);
  tree.boot(1'000 + 3'600);
  EXPECT_EQ(start(42), before);
  tree.boot(1'000 - 900);
  EXPECT_EQ(start(42), before);
}

TEST_F(ProcfsProcessTableTest, TablesThatShareABootTimeAgreeAfterAJump) {
  tree.process(42);
  auto shared = std::make_shared<BootTime>(tree.proc());
  ProcfsProcessTable first(tree.proc(), shared);
  const auto before = first.record(42);
  tree.boot(9'999);
  ProcfsProcessTable second(tree.proc(), shared);
  EXPECT_EQ(second.record(42)->startSeconds, before->startSeconds);
}

TEST_F(ProcfsProcessTableTest, ReusedPidHasAnotherStart) {
  tree.process(42, {.startTicks = 500});
  const std::uint64_t before = start(42);
  tree.end(42);
  EXPECT_FALSE(table.record(42));
  tree.process(42, {.startTicks = 501});
  EXPECT_EQ(start(42), before + microsecondsPerTick());
}

TEST_F(ProcfsProcessTableTest, WithoutABootTimeThereIsNoRecordUntilThereIsOne) {
  tree.process(42).file("proc/stat", "cpu  1 2 3\n");
  EXPECT_FALSE(table.record(42));
  tree.boot(5);
  EXPECT_TRUE(table.record(42));
}

TEST_F(ProcfsProcessTableTest, ProcessThatOnlyWaitsForItsParentIsAbsent) {
  tree.process(42, {.state = 'Z'}).process(43, {.state = 'Z', .threads = 4});
  EXPECT_FALSE(table.record(42));
  EXPECT_FALSE(table.usage(42));
  EXPECT_TRUE(table.record(43));
}

TEST_F(ProcfsProcessTableTest, MalformedOrOversizedStatIsAbsent) {
  tree.process(42).file(ProcTree::name(42, "stat"), "42 (x) S");
  EXPECT_FALSE(table.record(42));
  tree.process(43, {.command = std::string(5'000, 'x')});
  EXPECT_FALSE(table.record(43));
  tree.process(44, {.startTicks = ~0ULL});  // would not fit in microseconds
  EXPECT_FALSE(table.record(44));
}

TEST_F(ProcfsProcessTableTest, PidsAreTheFoldersWithNumbersForNames) {
  tree.process(42).process(7).file("proc/self/stat", "x").file("proc/12a/stat", "x").file("proc/0/stat", "x");
  auto pids = table.allPids();
  std::sort(pids.begin(), pids.end());
  EXPECT_EQ(pids, (std::vector<std::int32_t>{7, 42}));
}

TEST_F(ProcfsProcessTableTest, PidsOfAMissingTreeAreNone) {
  ProcfsProcessTable none(tree.path("nothing"), std::make_shared<BootTime>(tree.path("nothing")));
  EXPECT_TRUE(none.allPids().empty());
  EXPECT_FALSE(none.record(1));
}

TEST_F(ProcfsProcessTableTest, ExecutablePathIsTheLinksTarget) {
  tree.process(42).link(ProcTree::name(42, "exe"), "/usr/bin/program");
  EXPECT_EQ(table.executablePath(42), "/usr/bin/program");
}

TEST_F(ProcfsProcessTableTest, ExecutablePathKeepsBytesThatAreNoUtf8) {
  tree.process(42).link(ProcTree::name(42, "exe"), "/opt/\xff\xfe/program");
  EXPECT_EQ(table.executablePath(42), "/opt/\xff\xfe/program");
}

TEST_F(ProcfsProcessTableTest, DeletedAndReplacedExecutablesLoseTheirMark) {
  tree.process(42).link(ProcTree::name(42, "exe"), tree.path("bin/program") + " (deleted)");
  EXPECT_EQ(table.executablePath(42), tree.path("bin/program"));
  tree.file("bin/program", "the new one");
  EXPECT_EQ(table.executablePath(42), tree.path("bin/program"));
}

TEST_F(ProcfsProcessTableTest, ExecutableThatIsReallyCalledDeletedKeepsItsName) {
  const std::string name = tree.path("bin/program (deleted)");
  tree.process(42).file("bin/program (deleted)", "x").link(ProcTree::name(42, "exe"), name);
  EXPECT_EQ(table.executablePath(42), name);
}

TEST_F(ProcfsProcessTableTest, ExecutablePathOfAnEndedProcessIsEmpty) {
  EXPECT_EQ(table.executablePath(42), "");
}

TEST_F(ProcfsProcessTableTest, UsageHasTicksMemoryAndDiskCounters) {
  tree.process(42, {.userTicks = 30, .systemTicks = 12})
      .file(ProcTree::name(42, "statm"), "1000 300 100 1 0 200 0\n")
      .file(ProcTree::name(42, "io"),
            "rchar: 1\nwchar: 2\nsyscr: 3\nsyscw: 4\nread_bytes: 4096\nwrite_bytes: "
            "8192\ncancelled_write_bytes: 0\n");
  const auto usage = table.usage(42);
  ASSERT_TRUE(usage);
  EXPECT_EQ(usage->cpuTime, 42U);
  EXPECT_EQ(usage->memory, 200U * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)));
  EXPECT_EQ(usage->diskRead, 4096U);
  EXPECT_EQ(usage->diskWritten, 8192U);
  EXPECT_EQ(table.cpuTimeUnitNanoseconds(), 1e9 / static_cast<double>(::sysconf(_SC_CLK_TCK)));
}

TEST_F(ProcfsProcessTableTest, RefusedDiskCountersAreAbsentAndTheRestIsThere) {
  tree.process(42).file(ProcTree::name(42, "statm"), "1 1 0 0 0 0 0\n");
  const auto usage = table.usage(42);
  ASSERT_TRUE(usage);
  EXPECT_FALSE(usage->diskRead);
  EXPECT_FALSE(usage->diskWritten);
}

TEST_F(ProcfsProcessTableTest, MemoryNeverFallsBelowZero) {
  tree.process(42).file(ProcTree::name(42, "statm"), "10 3 5 0 0 0 0\n");
  EXPECT_EQ(table.usage(42)->memory, 0U);
}

TEST_F(ProcfsProcessTableTest, WithoutMemoryFiguresItIsWhatIsResident) {
  tree.process(42);
  const std::uint64_t resident = 200U * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
  ASSERT_TRUE(table.usage(42));
  EXPECT_EQ(table.usage(42)->memory, resident);
  for (const std::string statm : {"", "1", "1 2", "1 x 3", "\n"}) {
    tree.file(ProcTree::name(42, "statm"), statm);
    ASSERT_TRUE(table.usage(42)) << statm;
    EXPECT_EQ(table.usage(42)->memory, resident) << statm;
  }
}

TEST_F(ProcfsProcessTableTest, KernelThreadHasTheKernelsName) {
  tree.process(42, {.command = "kthreadd", .parent = 0});
  EXPECT_EQ(table.executablePath(42), "kthreadd");
}

TEST_F(ProcfsProcessTableTest, SwappedMemoryCountsWhileTheSwapIsInUse) {
  tree.process(42)
      .file(ProcTree::name(42, "statm"), "10 0 0 0 0 0 0\n")
      .file(ProcTree::name(42, "status"), "Name:\tprogram\nVmSwap:\t      12 kB\n")
      .file("proc/meminfo", "SwapTotal:       1000 kB\nSwapFree:        1000 kB\n");
  (void)table.allPids();
  EXPECT_EQ(table.usage(42)->memory, 0U);
  tree.file("proc/meminfo", "SwapTotal:       1000 kB\nSwapFree:         900 kB\n");
  (void)table.allPids();
  EXPECT_EQ(table.usage(42)->memory, 12U * 1024U);
}

TEST_F(ProcfsProcessTableTest, ListeningPortsAreThoseOfTheProcessesOwnSockets) {
  constexpr const char* kHeader =
      "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid\n";
  tree.process(42)
      .file(ProcTree::name(42, "net/tcp"), std::string(kHeader) +
                                               "   0: 0100007F:1F90 00000000:0000 0A 00000000:00000000 "
                                               "00:00000000 00000000  1000        0 111 1\n"
                                               "   1: 00000000:0050 00000000:0000 0A 00000000:00000000 "
                                               "00:00000000 00000000  1000        0 222 1\n"
                                               "   2: 0100007F:0016 0100007F:9C40 01 00000000:00000000 "
                                               "00:00000000 00000000  1000        0 333 1\n")
      .file(ProcTree::name(42, "net/tcp6"),
            std::string(kHeader) +
                "   0: 00000000000000000000000000000000:1F90 00000000000000000000000000000000:0000 0A "
                "00000000:00000000 00:00000000 00000000  1000        0 444 1\n"
                "   1: 00000000000000000000000000000000:01BB 00000000000000000000000000000000:0000 0A "
                "00000000:00000000 00:00000000 00000000  1000        0 555 1\n")
      .link(ProcTree::name(42, "fd/0"), "/dev/null")
      .link(ProcTree::name(42, "fd/3"), "socket:[111]")
      .link(ProcTree::name(42, "fd/4"), "socket:[333]")
      .link(ProcTree::name(42, "fd/5"), "socket:[444]")
      .link(ProcTree::name(42, "fd/6"), "socket:[555]")
      .link(ProcTree::name(42, "fd/7"), "pipe:[222]");
  EXPECT_EQ(table.listeningPorts(42), (std::vector<std::int64_t>{443, 8080}));
  EXPECT_TRUE(table.listeningPorts(43).empty());
}

TEST_F(ProcfsProcessTableTest, WorkingDirectoryIsTheLinksTarget) {
  tree.process(42).link(ProcTree::name(42, "cwd"), "/home/someone/project");
  EXPECT_EQ(table.workingDirectory(42), "/home/someone/project");
  tree.link(ProcTree::name(42, "cwd"), "/home/someone/gone (deleted)");
  EXPECT_EQ(table.workingDirectory(42), "/home/someone/gone");
  EXPECT_FALSE(table.workingDirectory(43));
}

}  // namespace
}  // namespace monitor::platform
