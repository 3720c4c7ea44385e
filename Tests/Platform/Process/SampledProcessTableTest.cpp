// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/SampledProcessTable.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Linux/Process/BootTime.h"
#include "Platform/Linux/Process/BoundedFile.h"
#include "Tests/Platform/Process/ProcTree.h"

namespace monitor::platform {
namespace {

class HandClock final : public Clock {
 public:
  [[nodiscard]] double now() const override { return seconds; }
  double seconds = 100'000.0;
};

// Counts what is opened in a folder.
class OpenCount {
 public:
  explicit OpenCount(const std::string& folder) : watch_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (::inotify_add_watch(watch_.get(), folder.c_str(), IN_OPEN) < 0) ADD_FAILURE() << folder;
  }
  // Since the last call.
  [[nodiscard]] std::size_t take() const {
    alignas(inotify_event) std::array<char, 4096> buffer;
    std::size_t count = 0;
    ssize_t length = 0;
    while ((length = ::read(watch_.get(), buffer.data(), buffer.size())) > 0) {
      for (ssize_t offset = 0; offset < length; ++count) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + offset);
        offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      }
    }
    return count;
  }

 private:
  FileDescriptor watch_;
};

class SampledProcessTableTest : public testing::Test {
 public:
  // Process 42, idle since it ran 5 times for 1,000 ns.
  SampledProcessTableTest() { process(42).schedule(42, "1000 20 5"); }

  SampledProcessTableTest& process(std::int32_t pid, const ProcEntry& entry = {}) {
    tree.process(pid, entry).file(ProcTree::name(pid, "statm"), "1000 300 100 1 0 200 0\n");
    return *this;
  }
  SampledProcessTableTest& schedule(std::int32_t pid, const std::string& text) {
    tree.file(ProcTree::name(pid, "schedstat"), text + '\n');
    return *this;
  }
  void lastPid(int pid) { tree.file("proc/loadavg", "0.10 0.20 0.30 1/200 " + std::to_string(pid) + '\n'); }

  SampledProcessTable makeTable(std::uint32_t owner = ::getuid(), std::size_t descriptors = 0) {
    return {{tree.proc(), owner, descriptors}, std::make_shared<BootTime>(tree.proc()), clock};
  }
  // CPU time after another pass.
  std::uint64_t cpuTime(std::int32_t pid) {
    (void)table.allPids();
    const auto usage = table.usage(pid);
    return usage ? usage->cpuTime : 0;
  }
  std::vector<std::int32_t> pids() {
    auto list = table.allPids();
    std::sort(list.begin(), list.end());
    return list;
  }

  ProcTree tree;
  std::shared_ptr<HandClock> clock = std::make_shared<HandClock>();
  SampledProcessTable table = makeTable();
};

TEST_F(SampledProcessTableTest, AnswersAreThoseOfThePlainTable) {
  process(43, {.parent = 42, .userTicks = 3, .systemTicks = 4, .startTicks = 777});
  tree.file(ProcTree::name(43, "io"), "read_bytes: 4096\nwrite_bytes: 8192\n")
      .link(ProcTree::name(43, "exe"), "/usr/bin/program")
      .link(ProcTree::name(43, "cwd"), "/home/someone");
  ProcfsProcessTable plain(tree.proc(), std::make_shared<BootTime>(tree.proc()));
  (void)table.allPids();
  const auto record = table.record(43);
  const auto expected = plain.record(43);
  ASSERT_TRUE(record && expected);
  EXPECT_EQ(record->startSeconds, expected->startSeconds);
  EXPECT_EQ(record->startMicroseconds, expected->startMicroseconds);
  EXPECT_EQ(record->parent, 42U);
  EXPECT_EQ(record->owner, ::getuid());
  const auto usage = table.usage(43);
  ASSERT_TRUE(usage);
  EXPECT_EQ(usage->cpuTime, 7U);
  EXPECT_EQ(usage->memory, plain.usage(43)->memory);
  EXPECT_EQ(usage->diskRead, 4096U);
  EXPECT_EQ(usage->diskWritten, 8192U);
  EXPECT_EQ(table.executablePath(43), "/usr/bin/program");
  EXPECT_EQ(table.workingDirectory(43), "/home/someone");
  EXPECT_EQ(table.cpuTimeUnitNanoseconds(), plain.cpuTimeUnitNanoseconds());
}

TEST_F(SampledProcessTableTest, ProcessThatDidNotRunIsNotReadAgain) {
  EXPECT_EQ(cpuTime(42), 0U);
  process(42, {.userTicks = 9});  // would be seen if it were read
  EXPECT_EQ(cpuTime(42), 0U);
}

TEST_F(SampledProcessTableTest, ProcessThatRanIsReadAgain) {
  EXPECT_EQ(cpuTime(42), 0U);
  process(42, {.userTicks = 9}).schedule(42, "1001 20 5");
  EXPECT_EQ(cpuTime(42), 9U);
  process(42, {.userTicks = 10}).schedule(42, "1001 20 6");  // the count alone tells too
  EXPECT_EQ(cpuTime(42), 10U);
}

TEST_F(SampledProcessTableTest, ProcessThatWasOnAProcessorIsReadAgainWhateverItsRunCountSays) {
  process(42, {.state = 'R', .userTicks = 1});
  EXPECT_EQ(cpuTime(42), 1U);
  process(42, {.state = 'R', .userTicks = 2});
  EXPECT_EQ(cpuTime(42), 2U);
  process(42, {.userTicks = 3});
  EXPECT_EQ(cpuTime(42), 3U);
  process(42, {.userTicks = 4});  // would be seen if it were read
  EXPECT_EQ(cpuTime(42), 3U);
}

TEST_F(SampledProcessTableTest, ProcessThatRunsAllTheTimeIsReadAllTheTimeUntilItStops) {
  for (std::uint64_t ticks = 1; ticks <= 12; ++ticks) {
    process(42, {.userTicks = ticks}).schedule(42, std::to_string(1'000 + ticks) + " 20 5");
    EXPECT_EQ(cpuTime(42), ticks);
  }
  process(42, {.userTicks = 13}).schedule(42, "2000 20 6");
  for (int pass = 0; pass < 12; ++pass) EXPECT_EQ(cpuTime(42), 13U);
  process(42, {.userTicks = 99});  // would be seen if it were read
  for (int pass = 0; pass < 12; ++pass) EXPECT_EQ(cpuTime(42), 13U);
}

TEST_F(SampledProcessTableTest, KernelThatDoesNotCountRunsIsReadInFull) {
  schedule(42, "0 0 0");
  for (const std::uint64_t ticks : {1U, 2U, 3U}) {
    process(42, {.userTicks = ticks});
    EXPECT_EQ(cpuTime(42), ticks);
  }
}

TEST_F(SampledProcessTableTest, KernelWithoutTheFileIsReadInFull) {
  process(43);
  for (const std::uint64_t ticks : {1U, 2U, 3U}) {
    process(43, {.userTicks = ticks});
    EXPECT_EQ(cpuTime(43), ticks);
  }
}

TEST_F(SampledProcessTableTest, ProcessWithSeveralThreadsIsReadInFull) {
  process(43, {.threads = 2}).schedule(43, "1000 20 5");
  for (const std::uint64_t ticks : {1U, 2U, 3U}) {
    process(43, {.userTicks = ticks, .threads = 2});
    EXPECT_EQ(cpuTime(43), ticks);
  }
  // And in full once more when the others ended, after which its own file counts.
  process(43, {.userTicks = 4}).schedule(43, "2000 20 9");
  EXPECT_EQ(cpuTime(43), 4U);
  process(43, {.userTicks = 5}).schedule(43, "2001 20 9");
  EXPECT_EQ(cpuTime(43), 5U);
  (void)cpuTime(43);
  process(43, {.userTicks = 6});
  EXPECT_EQ(cpuTime(43), 5U);
}

TEST_F(SampledProcessTableTest, KeptDescriptorSeesWhatHappens) {
  SampledProcessTable keeping = makeTable(::getuid(), 1);
  process(43).schedule(43, "7 7 7");  // one of the two has no descriptor
  (void)keeping.allPids();
  EXPECT_EQ(keeping.usage(42)->cpuTime, 0U);
  EXPECT_EQ(keeping.usage(43)->cpuTime, 0U);
  process(42, {.userTicks = 9}).schedule(42, "1001 20 6");
  process(43, {.userTicks = 8}).schedule(43, "8 8 8");
  (void)keeping.allPids();
  EXPECT_EQ(keeping.usage(42)->cpuTime, 9U);
  EXPECT_EQ(keeping.usage(43)->cpuTime, 8U);
}

TEST_F(SampledProcessTableTest, FilesOfAProcessThatRunsAllTheTimeStayOpen) {
  SampledProcessTable keeping = makeTable(::getuid(), 100);
  const auto run = [&](std::uint64_t ticks) {
    process(42, {.userTicks = ticks}).schedule(42, std::to_string(1'000 + ticks) + " 20 5");
    (void)keeping.allPids();
    return keeping.usage(42)->cpuTime;
  };
  for (std::uint64_t ticks = 1; ticks <= 8; ++ticks) EXPECT_EQ(run(ticks), ticks);
  process(42, {.userTicks = 9}).schedule(42, "1009 20 5");
  const OpenCount opened(tree.path("proc/42"));
  (void)keeping.allPids();
  EXPECT_EQ(keeping.usage(42)->cpuTime, 9U);
  EXPECT_EQ(opened.take(), 0U);
  // Stops: they are closed, and opened again when it runs once more.
  for (int pass = 0; pass < 9; ++pass) (void)keeping.allPids();
  EXPECT_EQ(keeping.usage(42)->cpuTime, 9U);
  EXPECT_EQ(run(10), 10U);
}

TEST_F(SampledProcessTableTest, PidOfAProcessWithOpenFilesMayBeTakenByAnother) {
  SampledProcessTable keeping = makeTable(::getuid(), 100);
  process(43, {.userTicks = 1, .threads = 5});
  for (int pass = 0; pass < 3; ++pass) {
    (void)keeping.allPids();
    EXPECT_EQ(keeping.usage(43)->cpuTime, 1U);
  }
  process(43, {.userTicks = 70, .startTicks = 9'000});
  (void)keeping.allPids();
  ASSERT_TRUE(keeping.record(43));
  EXPECT_EQ(keeping.usage(43)->cpuTime, 70U);
  EXPECT_TRUE(keeping.mayHaveNewIdentity(43));
}

TEST_F(SampledProcessTableTest, MemoryOfAnIdleProcessIsReadAgainWithTime) {
  (void)table.allPids();
  const std::uint64_t before = table.usage(42)->memory;
  tree.file(ProcTree::name(42, "statm"), "1000 200 100 1 0 200 0\n");
  clock->seconds += 239.0;
  (void)table.allPids();
  EXPECT_EQ(table.usage(42)->memory, before);
  clock->seconds += 61.0;
  (void)table.allPids();
  EXPECT_EQ(table.usage(42)->memory, before / 2);
}

TEST_F(SampledProcessTableTest, UnreadableMemoryIsWhatIsResident) {
  process(43);
  tree.file(ProcTree::name(43, "statm"), "nonsense\n");
  (void)table.allPids();
  ASSERT_TRUE(table.usage(43));
  EXPECT_EQ(table.usage(43)->memory, 200U * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)));
}

TEST_F(SampledProcessTableTest, NewProcessesAreThoseAfterTheLastPid) {
  lastPid(60);
  for (int pass = 0; pass < 3; ++pass) EXPECT_EQ(pids(), (std::vector<std::int32_t>{42}));
  process(50);
  EXPECT_EQ(pids(), (std::vector<std::int32_t>{42})) << "nobody can have started without a pid";
  process(61).process(63);
  lastPid(63);
  EXPECT_EQ(pids(), (std::vector<std::int32_t>{42, 61, 63}));
  process(62);  // had its pid before, but can be seen only now
  EXPECT_EQ(pids(), (std::vector<std::int32_t>{42, 61, 62, 63}));
}

TEST_F(SampledProcessTableTest, ThreadThatTookAPidIsNotAProcess) {
  lastPid(60);
  for (int pass = 0; pass < 3; ++pass) (void)pids();
  process(61).process(62);
  tree.file(ProcTree::name(61, "status"), "Name:\tprogram\nTgid:\t42\n")
      .file(ProcTree::name(62, "status"), "Name:\tprogram\nTgid:\t62\n");
  lastPid(62);
  EXPECT_EQ(pids(), (std::vector<std::int32_t>{42, 62}));
}

TEST_F(SampledProcessTableTest, EverythingIsListedWhenPidsStartOver) {
  lastPid(32'000);
  for (int pass = 0; pass < 3; ++pass) (void)pids();
  process(5).process(32'005);
  lastPid(5);
  EXPECT_EQ(pids(), (std::vector<std::int32_t>{5, 42, 32'005}));
}

TEST_F(SampledProcessTableTest, EverythingIsListedWhenManyHaveStarted) {
  lastPid(60);
  for (int pass = 0; pass < 3; ++pass) (void)pids();
  process(30);  // found only by a listing
  process(100);
  lastPid(100);
  EXPECT_EQ(pids(), (std::vector<std::int32_t>{42, 100}));
  process(20'000);
  lastPid(20'000);
  EXPECT_EQ(pids(), (std::vector<std::int32_t>{30, 42, 100, 20'000}));
}

TEST_F(SampledProcessTableTest, ListingIsRepeatedEveryTenSecondsAnyway) {
  lastPid(100);
  for (int pass = 0; pass < 4; ++pass) (void)pids();
  process(43);
  clock->seconds += 9.9;
  EXPECT_EQ(pids().size(), 1U);
  clock->seconds += 0.2;
  EXPECT_EQ(pids().size(), 2U);
}

TEST_F(SampledProcessTableTest, WithoutALastPidEveryPassLists) {
  for (int pass = 0; pass < 4; ++pass) (void)pids();
  process(43);
  EXPECT_EQ(pids().size(), 2U);
}

TEST_F(SampledProcessTableTest, ProcessThatEndedLeavesTheListingWithoutANewOne) {
  lastPid(100);
  process(43).schedule(43, "7 7 7");
  for (int pass = 0; pass < 4; ++pass) {
    (void)pids();
    (void)table.record(42);
    (void)table.record(43);
  }
  tree.end(43);
  (void)pids();
  EXPECT_FALSE(table.record(43));
  EXPECT_FALSE(table.usage(43));
  EXPECT_EQ(pids(), (std::vector<std::int32_t>{42}));
}

TEST_F(SampledProcessTableTest, ProcessThatEndsBetweenTwoReadsIsAbsentFromTheOthers) {
  (void)table.allPids();
  tree.end(42);
  EXPECT_FALSE(table.record(42));
  EXPECT_FALSE(table.usage(42));
  EXPECT_TRUE(table.listeningPorts(42).empty());
}

TEST_F(SampledProcessTableTest, ZombieIsAbsent) {
  (void)cpuTime(42);
  process(42, {.state = 'Z'}).schedule(42, "1002 20 6");
  (void)table.allPids();
  EXPECT_FALSE(table.record(42));
}

TEST_F(SampledProcessTableTest, ReusedPidIsANewProcess) {
  (void)table.allPids();
  const auto before = table.record(42);
  ASSERT_TRUE(before);
  process(42, {.userTicks = 1, .startTicks = 4'500}).schedule(42, "5 5 1");
  (void)table.allPids();
  const auto after = table.record(42);
  ASSERT_TRUE(after);
  EXPECT_NE(after->startSeconds, before->startSeconds);
  EXPECT_TRUE(table.mayHaveNewIdentity(42));
}

TEST_F(SampledProcessTableTest, OrphanGetsItsNewParentAlthoughItDidNotRun) {
  process(50).process(51, {.parent = 50}).schedule(51, "7 7 7");
  (void)table.allPids();
  EXPECT_TRUE(table.record(50));
  EXPECT_EQ(table.record(51)->parent, 50U);
  tree.end(50);
  process(51, {.parent = 1});
  (void)table.allPids();
  EXPECT_EQ(table.record(51)->parent, 1U);
}

TEST_F(SampledProcessTableTest, IdentityIsAskedForOnceAndAgainForAnotherProgram) {
  (void)table.allPids();
  EXPECT_TRUE(table.mayHaveNewIdentity(42));
  (void)table.allPids();
  EXPECT_FALSE(table.mayHaveNewIdentity(42));
  schedule(42, "1003 20 7");
  (void)table.allPids();
  EXPECT_FALSE(table.mayHaveNewIdentity(42)) << "it only ran";
  process(42, {.command = "another"}).schedule(42, "1004 20 8");
  (void)table.allPids();
  EXPECT_TRUE(table.mayHaveNewIdentity(42));
  process(42, {.command = "another", .terminal = 34'816}).schedule(42, "1005 20 9");
  (void)table.allPids();
  EXPECT_TRUE(table.mayHaveNewIdentity(42)) << "it has a terminal now";
}

TEST_F(SampledProcessTableTest, UnitIsLookedAtAgainWhenAProcessIsTwiceAsOld) {
  const auto isNewAfter = [this](double seconds) {
    clock->seconds += seconds;
    (void)table.allPids();
    return table.mayHaveNewIdentity(43);
  };
  clock->seconds = 1'002.0;
  process(43, {.startTicks = 1'000 * static_cast<std::uint64_t>(::sysconf(_SC_CLK_TCK))});
  schedule(43, "7 7 7");
  tree.controlGroup(43, "/session.slice");
  EXPECT_TRUE(isNewAfter(0.0));  // two seconds old
  tree.controlGroup(43, "/app.slice/app-one.scope");
  EXPECT_FALSE(isNewAfter(1.9));
  EXPECT_TRUE(isNewAfter(0.1));  // four seconds old
  EXPECT_FALSE(isNewAfter(4.0)) << "it is where it was";
  tree.controlGroup(43, "/app.slice/app-two.scope");
  EXPECT_FALSE(isNewAfter(7.9));
  EXPECT_TRUE(isNewAfter(0.1));  // sixteen seconds old
}

TEST_F(SampledProcessTableTest, SettledProcessIsIdentifiedAgainEveryFiveMinutes) {
  (void)table.allPids();
  (void)table.record(42);
  (void)table.allPids();
  EXPECT_FALSE(table.mayHaveNewIdentity(42));
  clock->seconds += 301.0;
  (void)table.allPids();
  EXPECT_TRUE(table.mayHaveNewIdentity(42));
}

TEST_F(SampledProcessTableTest, NothingOfAnotherUserIsOpened) {
  SampledProcessTable others = makeTable(::getuid() + 1);
  const OpenCount opened(tree.path("proc/42"));
  for (int pass = 0; pass < 3; ++pass) {
    const auto pids = others.allPids();
    EXPECT_EQ(std::count(pids.begin(), pids.end(), 42), 1);
    EXPECT_FALSE(others.record(42));
    EXPECT_FALSE(others.usage(42));
    EXPECT_TRUE(others.listeningPorts(42).empty());
  }
  EXPECT_EQ(opened.take(), 0U);
  (void)table.allPids();
  EXPECT_TRUE(table.record(42));
  EXPECT_GT(opened.take(), 0U) << "what is opened is seen by this test";
}

TEST_F(SampledProcessTableTest, IdleProcessWithAKeptDescriptorOpensNothing) {
  SampledProcessTable keeping = makeTable(::getuid(), 10);
  (void)keeping.allPids();
  EXPECT_TRUE(keeping.record(42));
  const OpenCount opened(tree.path("proc/42"));
  for (int pass = 0; pass < 3; ++pass) {
    (void)keeping.allPids();
    EXPECT_TRUE(keeping.record(42));
    EXPECT_TRUE(keeping.usage(42));
    EXPECT_FALSE(keeping.mayHaveNewIdentity(42));
    EXPECT_TRUE(keeping.listeningPorts(42).empty());
  }
  EXPECT_EQ(opened.take(), 0U);
}

// An ordinary user for as long as it lives; the superuser may read everything. What lies below `tree` is that
// user's then.
class OrdinaryUser {
 public:
  explicit OrdinaryUser(const std::filesystem::path& tree) : before_(::geteuid()) {
    if (before_ != 0) return;
    give(tree);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(tree)) give(entry.path());
    if (::seteuid(kNobody) != 0) ADD_FAILURE() << "seteuid";
  }
  OrdinaryUser(const OrdinaryUser&) = delete;
  OrdinaryUser& operator=(const OrdinaryUser&) = delete;
  ~OrdinaryUser() {
    if (::geteuid() != before_ && ::seteuid(before_) != 0) ADD_FAILURE() << "seteuid";
  }

 private:
  static constexpr uid_t kNobody = 65'534;
  static void give(const std::filesystem::path& path) {
    if (::lchown(path.c_str(), kNobody, kNobody) != 0) ADD_FAILURE() << path;
  }

  uid_t before_;
};

TEST_F(SampledProcessTableTest, RefusedStatIsARecordWithoutUsage) {
  process(43);
  std::filesystem::permissions(tree.path("proc/43/stat"), std::filesystem::perms::none);
  const OrdinaryUser user(tree.path(""));
  SampledProcessTable ordinary = makeTable(::geteuid());
  (void)ordinary.allPids();
  const auto record = ordinary.record(43);
  ASSERT_TRUE(record);
  EXPECT_EQ(record->owner, ::geteuid());
  EXPECT_FALSE(ordinary.usage(43));
  EXPECT_TRUE(ordinary.usage(42)) << "and it is the only one";
}

TEST_F(SampledProcessTableTest, RefusedDiskCountersAreAbsentAndTheRestIsThere) {
  process(43, {.userTicks = 7});
  tree.file(ProcTree::name(43, "io"), "read_bytes: 4096\nwrite_bytes: 8192\n");
  std::filesystem::permissions(tree.path("proc/43/io"), std::filesystem::perms::none);
  const OrdinaryUser user(tree.path(""));
  SampledProcessTable ordinary = makeTable(::geteuid());
  (void)ordinary.allPids();
  const auto usage = ordinary.usage(43);
  ASSERT_TRUE(usage);
  EXPECT_EQ(usage->cpuTime, 7U);
  EXPECT_FALSE(usage->diskRead);
  EXPECT_FALSE(usage->diskWritten);
}

// Listening sockets, below.

constexpr const char* kHeader =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid\n";

std::string listenerLine(int port, std::uint64_t inode) {
  std::array<char, 8> hexadecimal;
  std::snprintf(hexadecimal.data(), hexadecimal.size(), "%04X", static_cast<unsigned>(port));
  return "   0: 0100007F:" + std::string(hexadecimal.data()) +
         " 00000000:0000 0A 00000000:00000000 00:00000000 00000000  1000        0 " + std::to_string(inode) +
         " 1\n";
}

class SampledPortsTest : public SampledProcessTableTest {
 protected:
  void listeners(const std::string& lines) { tree.file("proc/net/tcp", kHeader + lines); }
  void socket(std::int32_t pid, int descriptor, std::uint64_t inode) {
    tree.link(ProcTree::name(pid, "fd/" + std::to_string(descriptor)),
              "socket:[" + std::to_string(inode) + ']');
  }
  std::vector<std::int64_t> ports(std::int32_t pid) {
    (void)table.allPids();
    return table.listeningPorts(pid);
  }
  using Ports = std::vector<std::int64_t>;
};

TEST_F(SampledPortsTest, PortsOfBothFamiliesAreAscendingAndDistinct) {
  listeners(listenerLine(8'080, 111) + listenerLine(80, 222));
  tree.file("proc/net/tcp6",
            std::string(kHeader) +
                "   0: 00000000000000000000000000000000:1F90 00000000000000000000000000000000:0000 0A "
                "00000000:00000000 00:00000000 00000000  1000        0 444 1\n"
                "   1: 00000000000000000000000000000000:01BB 00000000000000000000000000000000:0000 0A "
                "00000000:00000000 00:00000000 00000000  1000        0 555 1\n");
  socket(42, 3, 111);
  socket(42, 4, 444);
  socket(42, 5, 555);
  EXPECT_EQ(ports(42), (Ports{443, 8'080}));
}

TEST_F(SampledPortsTest, WithoutAnyListenerNothingIsWalked) {
  socket(42, 3, 111);
  (void)ports(42);
  const OpenCount opened(tree.path("proc/42/fd"));
  EXPECT_TRUE(ports(42).empty());
  EXPECT_EQ(opened.take(), 0U);
}

TEST_F(SampledPortsTest, ProcessThatDidNotRunIsWalkedOnce) {
  listeners(listenerLine(80, 111));
  socket(42, 3, 111);
  EXPECT_EQ(ports(42), (Ports{80}));
  const OpenCount opened(tree.path("proc/42/fd"));
  EXPECT_EQ(ports(42), (Ports{80}));
  listeners(listenerLine(80, 111) + listenerLine(90, 999));  // somebody else's
  EXPECT_EQ(ports(42), (Ports{80}));
  EXPECT_EQ(opened.take(), 0U);
}

TEST_F(SampledPortsTest, SocketThatAnIdleProcessHoldsMayBeginToListen) {
  listeners(listenerLine(90, 999));
  socket(42, 3, 111);
  EXPECT_TRUE(ports(42).empty());
  listeners(listenerLine(90, 999) + listenerLine(80, 111));  // by a child that shares it
  EXPECT_EQ(ports(42), (Ports{80}));
  listeners(listenerLine(90, 999));
  EXPECT_TRUE(ports(42).empty());
}

TEST_F(SampledPortsTest, ProcessThatRanIsWalkedOnlyForANewListener) {
  listeners(listenerLine(90, 999));
  tree.link(ProcTree::name(42, "fd/0"), "/dev/null");
  EXPECT_TRUE(ports(42).empty());
  const OpenCount opened(tree.path("proc/42/fd"));
  schedule(42, "2000 20 6");
  EXPECT_TRUE(ports(42).empty());
  EXPECT_EQ(opened.take(), 0U);
  schedule(42, "3000 20 7");
  socket(42, 3, 111);
  listeners(listenerLine(90, 999) + listenerLine(80, 111));
  EXPECT_EQ(ports(42), (Ports{80}));
}

TEST_F(SampledPortsTest, ListenerThatAppearsAfterItsHolderRanIsFound) {
  listeners(listenerLine(90, 999));
  EXPECT_TRUE(ports(42).empty());
  schedule(42, "2000 20 6");
  socket(42, 3, 111);
  EXPECT_TRUE(ports(42).empty());  // it does not listen yet
  listeners(listenerLine(90, 999) + listenerLine(80, 111));
  EXPECT_EQ(ports(42), (Ports{80})) << "although it is idle again";
}

TEST_F(SampledPortsTest, ListenerThatWasClosedOrMovedIsLookedForAgain) {
  listeners(listenerLine(80, 111) + listenerLine(90, 222));
  socket(42, 3, 111);
  socket(42, 4, 222);
  EXPECT_EQ(ports(42), (Ports{80, 90}));
  schedule(42, "2000 20 6");
  socket(42, 7, 111);
  tree.link(ProcTree::name(42, "fd/3"), "/dev/null");
  tree.link(ProcTree::name(42, "fd/4"), "/dev/null");  // a child still has this one
  EXPECT_EQ(ports(42), (Ports{80}));
}

TEST_F(SampledPortsTest, ChildThatInheritedAListenerIsWalked) {
  listeners(listenerLine(80, 111));
  socket(42, 3, 111);
  EXPECT_EQ(ports(42), (Ports{80}));
  process(43, {.parent = 42}).schedule(43, "5 5 5");
  socket(43, 3, 111);
  EXPECT_EQ(ports(43), (Ports{80}));
}

TEST_F(SampledPortsTest, AnotherProgramInItsPlaceIsWalked) {
  listeners(listenerLine(80, 111));
  EXPECT_TRUE(ports(42).empty());
  process(42, {.command = "server"}).schedule(42, "2000 20 6");
  socket(42, 3, 111);
  EXPECT_EQ(ports(42), (Ports{80}));
}

TEST_F(SampledPortsTest, SocketHandedToARunningProcessIsFoundWithTime) {
  listeners(listenerLine(80, 111));
  EXPECT_TRUE(ports(42).empty());
  schedule(42, "2000 20 6");
  socket(42, 3, 111);
  EXPECT_TRUE(ports(42).empty());
  clock->seconds += 301.0;
  schedule(42, "2001 20 7");
  EXPECT_EQ(ports(42), (Ports{80}));
}

TEST_F(SampledPortsTest, ProcessInANetworkOfItsOwnHasThePortsOfThatNetwork) {
  listeners(listenerLine(80, 111));
  tree.link(ProcTree::name(::getpid(), "ns/net"), "net:[4026531840]");
  tree.link(ProcTree::name(42, "ns/net"), "net:[4026532999]");
  tree.file(ProcTree::name(42, "net/tcp"), kHeader + listenerLine(5'432, 777));
  socket(42, 3, 777);
  EXPECT_EQ(ports(42), (Ports{5'432}));
  EXPECT_EQ(ports(42), (Ports{5'432}));
}

TEST_F(SampledPortsTest, DumpThatIsRefusedIsReplacedByTheTables) {
  int asked = 0;
  SampledProcessTable refused({tree.proc(), ::getuid(), 0,
                               [&asked]() -> std::optional<ListeningSockets> {
                                 ++asked;
                                 return std::nullopt;
                               }},
                              std::make_shared<BootTime>(tree.proc()), clock);
  listeners(listenerLine(80, 111));
  socket(42, 3, 111);
  (void)refused.allPids();
  EXPECT_EQ(refused.listeningPorts(42), (Ports{80}));
  EXPECT_EQ(refused.listeningPorts(42), (Ports{80}));
  EXPECT_EQ(asked, 1) << "once a pass";
}

}  // namespace
}  // namespace monitor::platform
