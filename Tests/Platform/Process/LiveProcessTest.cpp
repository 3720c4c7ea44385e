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
  std::shared_ptr<ProcessTable> table_ = platform::makeProcessTable();
  std::vector<pid_t> children_;
};

}  // namespace

namespace contract {
INSTANTIATE_TYPED_TEST_SUITE_P(Live, ProcessTableContract, LiveProcesses);
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

TEST(LiveProcessTest, OwnListeningPortIsFound) {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_GE(listener, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::listen(listener, 1), 0);
  socklen_t length = sizeof address;
  ASSERT_EQ(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
  const std::vector<std::int64_t> ports = makeProcessTable()->listeningPorts(::getpid());
  EXPECT_NE(std::find(ports.begin(), ports.end(), ntohs(address.sin_port)), ports.end());
  ::close(listener);
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
