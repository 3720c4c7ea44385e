// SPDX-License-Identifier: MIT
// The built program on this machine, run as the helper runs it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <chrono>
#include <csignal>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

#include "MonitorCore/AdvancedParser.h"
#include "MonitorCore/MonitorError.h"
#include "MonitorMac/AdvancedCollector.h"
#include "MonitorMac/ProcessIdentity.h"
#include "Platform/Linux/Base/Clocks.h"
#include "Platform/Linux/Power/NetlinkTcpSockets.h"
#include "Platform/Linux/Process/ProcfsProcessTable.h"
#include "Platform/Posix/PosixToolRunner.h"

namespace monitor::powermetrics {
namespace {

using Outcome = ToolResult::Outcome;
using ::testing::EndsWith;
using ::testing::HasSubstr;

constexpr double kLong = 60.0;

ToolResult runTool(std::vector<std::string> arguments, double timeout = kLong) {
  platform::PosixToolRunner runner;
  return runner.run({.executable = VESK_POWERMETRICS,
                     .arguments = std::move(arguments),
                     .environment = {{"PATH", "/usr/bin:/bin"}, {"LC_ALL", "C"}},
                     .timeout = timeout,
                     .outputLimit = 8'388'608});
}

// A line of a shell that knows the tool as $TOOL.
ToolResult shell(const std::string& line, double timeout = kLong) {
  platform::PosixToolRunner runner;
  return runner.run({.executable = "/bin/sh",
                     .arguments = {"-c", line},
                     .environment = {{"PATH", "/usr/bin:/bin"}, {"TOOL", VESK_POWERMETRICS}},
                     .errorsToOutput = true,
                     .timeout = timeout,
                     .outputLimit = 8'388'608});
}

// Samples as the helper takes them, until one suits. The helper's time-outs are meant for an idle machine,
// and on a busy one a second may pass in which a thread of this process does not run.
template <typename Suits>
AdvancedSample takeSample(ProcessTable& processes, Suits suits) {
  platform::PosixToolRunner runner;
  const platform::SystemWallClock wallClock;
  for (int triesLeft = 10;; --triesLeft) {
    try {
      AdvancedSample sample =
          AdvancedCollector::sample({runner, processes, wallClock, VESK_POWERMETRICS}, ::geteuid());
      if (triesLeft == 0 || suits(sample)) return sample;
    } catch (const MonitorError&) {
      if (triesLeft == 0) throw;
    }
  }
}

const AdvancedProcessReading* readingOf(const AdvancedSample& sample, const ProcessKey& key) {
  const auto found = std::find_if(sample.processes.begin(), sample.processes.end(),
                                  [&](const auto& process) { return process.key == key; });
  return found == sample.processes.end() ? nullptr : &*found;
}

// Two ends of one connection within this process.
class Connection {
 public:
  Connection() {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    sender_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::bind(listener, generic, length) == 0 && ::listen(listener, 1) == 0 &&
        ::getsockname(listener, generic, &length) == 0 && ::connect(sender_, generic, length) == 0) {
      receiver_ = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    }
    ::close(listener);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() {
    ::close(sender_);
    if (receiver_ >= 0) ::close(receiver_);
  }

  void carry() const {
    std::array<char, 1'000> bytes{};
    if (::send(sender_, bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0)
      (void)!::recv(receiver_, bytes.data(), bytes.size(), 0);
  }

 private:
  int sender_ = -1;
  int receiver_ = -1;
};

// One that carries bytes all the time.
class Stream {
 public:
  Stream()
      : thread_([this] {
          while (!stop_) {
            connection_.carry();
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
          }
        }) {}
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream() {
    stop_ = true;
    thread_.join();
  }

 private:
  Connection connection_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

// A process of another user with a connection to itself that carries bytes all the time.
class ForeignProcess {
 public:
  // Returns when the connection is there.
  ForeignProcess() {
    std::array<int, 2> ready{};
    if (::pipe2(ready.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
    pid_ = ::fork();
    if (pid_ == 0) run(ready[1]);
    ::close(ready[1]);
    char byte = 0;
    (void)!::read(ready[0], &byte, 1);
    ::close(ready[0]);
  }
  ForeignProcess(const ForeignProcess&) = delete;
  ForeignProcess& operator=(const ForeignProcess&) = delete;
  ~ForeignProcess() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  [[nodiscard]] pid_t pid() const { return pid_; }

 private:
  [[noreturn]] static void run(int ready) {
    constexpr uid_t kNobody = 65'534;
    if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) ::_exit(1);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const Connection connection;
    (void)!::write(ready, "x", 1);
    while (true) {
      connection.carry();
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }

  pid_t pid_ = 0;
};

// The capabilities that the unit leaves to the helper, as setpriv wants them: "-all,+net_admin".
std::string helpersCapabilities() {
  constexpr std::string_view kKey = "CapabilityBoundingSet=";
  std::ifstream unit(VESK_HELPER_UNIT);
  for (std::string line; std::getline(unit, line);) {
    if (!line.starts_with(kKey)) continue;
    std::istringstream names(line.substr(kKey.size()));
    std::string list = "-all";
    for (std::string name; names >> name;) {
      std::transform(name.begin(), name.end(), name.begin(),
                     [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
      list += ",+" + name.substr(std::string_view("cap_").size());
    }
    return list;
  }
  return {};
}

TEST(PowermetricsProgramTest, CapabilitiesOfTheHelpersUnitSuffice) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give up capabilities";
  if (!platform::NetlinkTcpSockets().current())
    GTEST_SKIP() << "the kernel answers no socket diagnostics here";
  const std::string capabilities = helpersCapabilities();
  ASSERT_NE(capabilities, "") << VESK_HELPER_UNIT " has no CapabilityBoundingSet";
  const ForeignProcess other;
  platform::PosixToolRunner runner;
  const ToolResult result =
      runner.run({.executable = "/usr/bin/setpriv",
                  .arguments = {"--bounding-set", capabilities, "--inh-caps", "-all", "--no-new-privs",
                                VESK_POWERMETRICS, "--samplers", "tasks", "--show-process-netstats",
                                "--sample-rate", "3000"},
                  .environment = {{"PATH", "/usr/bin:/bin"}},
                  .errorsToOutput = true,
                  .timeout = kLong,
                  .outputLimit = 8'388'608});
  ASSERT_TRUE(result.succeeded()) << result.output;
  const AdvancedSample sample =
      AdvancedParser::parse(result.output, {{other.pid(), {other.pid(), 1}}}, Date{0});
  ASSERT_EQ(sample.processes.size(), 1U);
  EXPECT_GT(sample.processes[0].download.value_or(0.0), 0.0);
}

TEST(PowermetricsProgramTest, HelpersCollectorReadsTheProgramOnThisMachine) {
  if (!platform::NetlinkTcpSockets().current())
    GTEST_SKIP() << "the kernel answers no socket diagnostics here";
  const Stream stream;
  platform::ProcfsProcessTable processes("/proc", std::make_shared<platform::BootTime>("/proc"));
  const auto info = processInfo(processes, ::getpid());
  ASSERT_TRUE(info);
  const AdvancedSample sample = takeSample(processes, [&](const AdvancedSample& taken) {
    const auto* own = readingOf(taken, info->key);
    return own != nullptr && own->download.value_or(0.0) > 0.0 && own->upload.value_or(0.0) > 0.0;
  });
  EXPECT_GE(sample.interval, 1.0);
  const auto* own = readingOf(sample, info->key);
  ASSERT_NE(own, nullptr);
  EXPECT_TRUE(own->energy);
  EXPECT_GT(own->download.value_or(0.0), 0.0);
  EXPECT_GT(own->upload.value_or(0.0), 0.0);
}

TEST(PowermetricsProgramTest, SeveralSamplesArriveOneAfterTheOther) {
  const ToolResult result = runTool({"--samplers", "tasks", "--sample-count", "3", "--sample-rate", "20"});
  ASSERT_TRUE(result.succeeded());
  EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\0'), 2);
  EXPECT_NO_THROW((void)AdvancedParser::parse(result.output, {}, Date{0}));
}

TEST(PowermetricsProgramTest, HelpSucceedsOnStandardOutput) {
  const ToolResult result = runTool({"--help"});
  EXPECT_TRUE(result.succeeded());
  EXPECT_THAT(result.output, HasSubstr("\n  smc "));
}

TEST(PowermetricsProgramTest, WrongUsageExitsWithTwoAndPrintsNothing) {
  const ToolResult result = runTool({"--sample-count", "none"});
  EXPECT_EQ(result.outcome, Outcome::Exited);
  EXPECT_EQ(result.code, 2);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(shell("$TOOL --sample-count none").output,
              HasSubstr("vesk-powermetrics: --sample-count: \"none\" is not a whole number"));
}

TEST(PowermetricsProgramTest, TermEndsItAtOnceWithNothingPrinted) {
  const ToolResult result = runTool({"--sample-rate", "60000"}, 0.5);
  EXPECT_EQ(result.outcome, Outcome::Signalled);
  EXPECT_EQ(result.code, SIGTERM);
  EXPECT_EQ(result.output, "");
}

TEST(PowermetricsProgramTest, TermEndsItEvenWhereTheCallerIgnoredIt) {
  const ToolResult result = shell("trap '' TERM; exec $TOOL --sample-rate 60000", 5.0);
  EXPECT_EQ(result.outcome, Outcome::Signalled);
  EXPECT_EQ(result.code, SIGTERM);
}

TEST(PowermetricsProgramTest, FullDeviceExitsWithOne) {
  const ToolResult result = shell("$TOOL --sample-rate 10 > /dev/full");
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.output,
            "vesk-powermetrics: Standard output cannot be written: No space left on device.\n");
}

TEST(PowermetricsProgramTest, ReaderThatWentAwayExitsWithOne) {
  const ToolResult result =
      shell("{ $TOOL --sample-rate 10 --sample-count 1000000 --samplers thermal; echo $? >&2; } | true");
  EXPECT_THAT(result.output, EndsWith("Standard output cannot be written: Broken pipe.\n1\n"));
}

}  // namespace
}  // namespace monitor::powermetrics
