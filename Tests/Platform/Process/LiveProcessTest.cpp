// SPDX-License-Identifier: MIT
// The adapters on the machine the test runs on.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Linux/Process/BoundedFile.h"
#include "Platform/Linux/Process/ProcessAdapters.h"
#include "Tests/Contract/ProcessTableContract.h"

namespace monitor {
namespace {

// Children that wait to be ended.
class LiveProcesses {
 public:
  explicit LiveProcesses(std::shared_ptr<ProcessTable> table = platform::makeProcessTable())
      : table_(std::move(table)) {}
  ProcessTable& table() { return *table_; }
  std::int32_t start() {
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::pause();
      ::_exit(0);
    }
    if (pid < 0) throw std::runtime_error("fork failed");
    children_.push_back(pid);
    return pid;
  }
  void end(std::int32_t pid) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
    std::erase(children_, pid);
  }
  ~LiveProcesses() {
    while (!children_.empty()) end(children_.back());
  }
  static std::uint32_t owner() { return ::getuid(); }
  static std::int32_t parent() { return ::getpid(); }

 private:
  std::shared_ptr<ProcessTable> table_;
  std::vector<pid_t> children_;
};

class LiveSampledProcesses : public LiveProcesses {
 public:
  LiveSampledProcesses() : LiveProcesses(platform::makeSampledProcessTable()) {}
};

}  // namespace

namespace contract {
INSTANTIATE_TYPED_TEST_SUITE_P(Live, ProcessTableContract, LiveProcesses);
INSTANTIATE_TYPED_TEST_SUITE_P(LiveSampled, ProcessTableContract, LiveSampledProcesses);
}  // namespace contract

namespace {

using platform::makeApplicationBundles;
using platform::makeProcessTable;

TEST(LiveProcessTest, OwnRecordIsPlausible) {
  const auto record = makeProcessTable()->record(::getpid());
  ASSERT_TRUE(record);
  EXPECT_EQ(record->parent, static_cast<std::uint32_t>(::getppid()));
  const auto now = static_cast<std::uint64_t>(std::time(nullptr));
  EXPECT_LE(record->startSeconds, now + 2);
  EXPECT_GE(record->startSeconds + 3'600, now) << "this test does not run for an hour";
}

TEST(LiveProcessTest, OwnExecutableAndFolderAreThoseOfThisTest) {
  const auto table = makeProcessTable();
  EXPECT_EQ(table->executablePath(::getpid()), std::filesystem::read_symlink("/proc/self/exe").string());
  EXPECT_EQ(table->workingDirectory(::getpid()), std::filesystem::current_path().string());
}

TEST(LiveProcessTest, ChildIsAbsentAsSoonAsItEndedEvenBeforeItIsWaitedFor) {
  const auto table = makeProcessTable();
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ASSERT_GT(child, 0);
  siginfo_t info{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT),
            0);  // ended, not yet waited for
  EXPECT_FALSE(table->record(child));
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
}

TEST(LiveProcessTest, ProcessWhoseFirstThreadEndedIsStillThere) {
  const auto table = makeProcessTable();
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    std::thread([&ready] {
      ::usleep(20'000);
      (void)!::write(ready[1], "x", 1);
      ::pause();
    }).detach();
    ::syscall(SYS_exit, 0);  // of this thread only, and without unwinding through the test
  }
  ASSERT_GT(child, 0);
  char byte = 0;
  ASSERT_EQ(::read(ready[0], &byte, 1), 1);
  EXPECT_TRUE(table->record(child));
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  ::close(ready[0]);
  ::close(ready[1]);
}

TEST(LiveProcessTest, ExecutableThatWasDeletedWhileItRunsKeepsItsPath) {
  const std::filesystem::path copy =
      std::filesystem::temp_directory_path() / ("vesk-deleted-" + std::to_string(::getpid()));
  std::filesystem::copy_file("/bin/sleep", copy, std::filesystem::copy_options::overwrite_existing);
  int started[2];
  ASSERT_EQ(::pipe2(started, O_CLOEXEC), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::execl(copy.c_str(), "sleep", "60", nullptr);
    ::_exit(1);
  }
  ASSERT_GT(child, 0);
  ::close(started[1]);
  char byte = 0;
  EXPECT_EQ(::read(started[0], &byte, 1), 0) << "closed by the start of the new program";
  ::close(started[0]);
  std::filesystem::remove(copy);
  EXPECT_EQ(makeProcessTable()->executablePath(child), copy.string());
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

std::string commandOf(const std::string& pid) {
  std::string command = platform::readFile("/proc/" + pid + "/comm", 64).value_or("\n");
  command.pop_back();
  return command;
}

TEST(LiveProcessTest, ExecutableThatMayNotBeReadIsTheCommandsName) {
  const auto table = makeProcessTable();
  if (::getuid() != 0) {
    const auto first = table->record(1);
    if (!first || first->owner == ::getuid())
      GTEST_SKIP() << "there is no process of another user to ask for";
    EXPECT_EQ(table->executablePath(1), commandOf("1"));
    return;
  }
  const std::string command = commandOf("self");
  const pid_t child = ::fork();
  if (child == 0) {  // asks for its parent as somebody who may not read the link
    constexpr uid_t kNobody = 65'534;
    if (::setresuid(kNobody, kNobody, kNobody) != 0) ::_exit(2);
    ::_exit(table->executablePath(::getppid()) == command ? 0 : 1);
  }
  ASSERT_GT(child, 0);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "this superuser cannot become another user";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(LiveProcessTest, OwnUsageGrowsWithWork) {
  const auto table = makeProcessTable();
  const auto before = table->usage(::getpid());
  ASSERT_TRUE(before);
  EXPECT_GT(before->memory, 100'000U);
  const std::clock_t begin = std::clock();
  while (std::clock() - begin < CLOCKS_PER_SEC / 20) {
  }
  const auto after = table->usage(::getpid());
  ASSERT_TRUE(after);
  EXPECT_GT(after->cpuTime, before->cpuTime);
  const double seconds =
      static_cast<double>(after->cpuTime - before->cpuTime) * table->cpuTimeUnitNanoseconds() / 1e9;
  EXPECT_GT(seconds, 0.02);
  EXPECT_LT(seconds, 1.0);
}

// A listening socket on a port that the kernel chose.
class Listener {
 public:
  explicit Listener(int family) : socket_(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in6 address{};  // unspecified, of both families
    address.sin6_family = static_cast<sa_family_t>(family);
    socklen_t length = family == AF_INET ? sizeof(sockaddr_in) : sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(socket_.get(), generic, length) != 0 || ::listen(socket_.get(), 1) != 0) return;
    if (::getsockname(socket_.get(), generic, &length) == 0) port_ = ntohs(address.sin6_port);
  }
  // 0 when this machine does not have the family.
  [[nodiscard]] std::int64_t port() const { return port_; }

 private:
  platform::FileDescriptor socket_;
  std::int64_t port_ = 0;
};

class LiveListenerTest : public testing::TestWithParam<int> {};

TEST_P(LiveListenerTest, IsFoundByBothTablesUntilItIsClosed) {
  auto listener = std::make_unique<Listener>(GetParam());
  const std::int64_t port = listener->port();
  if (port == 0) GTEST_SKIP() << "this machine has no sockets of family " << GetParam();
  const auto sampled = platform::makeSampledProcessTable();
  for (const auto& table : {makeProcessTable(), sampled}) {
    (void)table->allPids();
    const std::vector<std::int64_t> ports = table->listeningPorts(::getpid());
    EXPECT_NE(std::find(ports.begin(), ports.end(), port), ports.end());
  }
  listener.reset();
  (void)sampled->allPids();
  const std::vector<std::int64_t> ports = sampled->listeningPorts(::getpid());
  EXPECT_EQ(std::find(ports.begin(), ports.end(), port), ports.end());
}

INSTANTIATE_TEST_SUITE_P(Families, LiveListenerTest, testing::Values(AF_INET, AF_INET6));

TEST(LiveProcessTest, SampledTableSaysTheSameAsThePlainOne) {
  const auto plain = makeProcessTable();
  const auto sampled = platform::makeSampledProcessTable();
  LiveProcesses children(sampled);
  const std::int32_t child = children.start();  // waits, and so does not change
  for (int pass = 0; pass < 3; ++pass) {
    (void)plain->allPids();
    (void)sampled->allPids();
    const auto record = sampled->record(child);
    const auto expected = plain->record(child);
    ASSERT_TRUE(record && expected);
    EXPECT_EQ(record->startSeconds, expected->startSeconds);
    EXPECT_EQ(record->startMicroseconds, expected->startMicroseconds);
    EXPECT_EQ(record->parent, expected->parent);
    EXPECT_EQ(record->owner, expected->owner);
  }
}

struct Seen {
  ProcessRecord record;
  ProcessUsage usage;
};

// This user's processes, as the plain table has them.
std::map<std::int32_t, Seen> processesNow(ProcessTable& plain) {
  std::map<std::int32_t, Seen> seen;
  for (const std::int32_t pid : plain.allPids()) {
    const auto record = plain.record(pid);
    const auto usage = plain.usage(pid);
    if (record && usage && record->owner == ::getuid()) seen[pid] = {*record, *usage};
  }
  return seen;
}

bool isSameProcess(const ProcessRecord& one, const ProcessRecord& other) {
  return one.startSeconds == other.startSeconds && one.startMicroseconds == other.startMicroseconds &&
         one.owner == other.owner;
}

TEST(LiveProcessTest, WhatTheSampledTableDoesNotReadAgainHasNotChanged) {
  const auto plain = makeProcessTable();
  const auto sampled = platform::makeSampledProcessTable();
  std::size_t compared = 0;
  for (int pass = 0; pass < 6; ++pass) {
    const auto before = processesNow(*plain);
    for (const std::int32_t pid : sampled->allPids()) (void)sampled->usage(pid);
    const auto after = processesNow(*plain);
    for (const auto& [pid, early] : before) {
      const auto late = after.find(pid);
      if (late == after.end() || !isSameProcess(early.record, late->second.record)) continue;
      const auto record = sampled->record(pid);
      const auto usage = sampled->usage(pid);
      ASSERT_TRUE(record && usage) << pid;
      EXPECT_TRUE(isSameProcess(*record, early.record)) << pid;
      EXPECT_GE(usage->cpuTime, early.usage.cpuTime) << pid;
      EXPECT_LE(usage->cpuTime, late->second.usage.cpuTime) << pid;
      EXPECT_GE(usage->diskRead.value_or(0), early.usage.diskRead.value_or(0)) << pid;
      EXPECT_LE(usage->diskRead.value_or(0), late->second.usage.diskRead.value_or(0)) << pid;
      EXPECT_GE(usage->diskWritten.value_or(0), early.usage.diskWritten.value_or(0)) << pid;
      EXPECT_LE(usage->diskWritten.value_or(0), late->second.usage.diskWritten.value_or(0)) << pid;
      ++compared;
    }
  }
  EXPECT_GE(compared, 6U) << "this test is a process too";
}

TEST(LiveProcessTest, SampledTableSeesAnIdleProcessWorkAgain) {
  const auto table = platform::makeSampledProcessTable();
  int go[2];
  int done[2];
  ASSERT_EQ(::pipe(go), 0);
  ASSERT_EQ(::pipe(done), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    char byte = 0;
    (void)!::read(go[0], &byte, 1);
    const std::clock_t begin = std::clock();
    while (std::clock() - begin < CLOCKS_PER_SEC / 10) {
    }
    (void)!::write(done[1], "x", 1);
    ::pause();
  }
  ASSERT_GT(child, 0);
  for (int pass = 0; pass < 3; ++pass) (void)table->allPids();
  const auto before = table->usage(child);
  ASSERT_EQ(::write(go[1], "x", 1), 1);
  char byte = 0;
  ASSERT_EQ(::read(done[0], &byte, 1), 1);
  (void)table->allPids();
  const auto after = table->usage(child);
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  for (const int end : {go[0], go[1], done[0], done[1]}) ::close(end);
  ASSERT_TRUE(before && after);
  EXPECT_GT(after->cpuTime, before->cpuTime);
  (void)table->allPids();
  EXPECT_FALSE(table->record(child)) << "it has ended";
}

TEST(LiveProcessTest, AllTablesOfAProgramAgreeOnStarts) {
  const auto first = makeProcessTable();
  const auto second = makeProcessTable();
  for (const std::int32_t pid : first->allPids()) {
    const auto one = first->record(pid);
    const auto other = second->record(pid);
    if (!one || !other || one->parent != other->parent) continue;  // ended, or another by now
    EXPECT_EQ(one->startSeconds, other->startSeconds) << pid;
    EXPECT_EQ(one->startMicroseconds, other->startMicroseconds) << pid;
  }
}

TEST(LiveProcessTest, EveryProcessOfThisMachineCanBeAskedForItsApplication) {
  const auto table = makeProcessTable();
  const auto bundles = makeApplicationBundles();
  for (const std::int32_t pid : table->allPids()) {
    const std::string executable = table->executablePath(pid);
    EXPECT_EQ(bundles->identityKey(pid, executable).substr(0, executable.size()), executable);
    const auto bundle = bundles->bundleOfProcess(pid, executable);
    EXPECT_TRUE(!bundle || !bundle->identifier || !bundle->identifier->empty());
  }
}

}  // namespace
}  // namespace monitor
