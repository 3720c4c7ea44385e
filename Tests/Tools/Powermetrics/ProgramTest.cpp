// SPDX-License-Identifier: MIT
// The built program on this machine, run as the helper runs it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
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

// A sample as the helper takes it. Its time-outs are meant for an idle machine; a busy one may need another
// try.
AdvancedSample takeSample(ProcessTable& processes) {
  platform::PosixToolRunner runner;
  const platform::SystemWallClock wallClock;
  for (int triesLeft = 10;; --triesLeft) {
    try {
      return AdvancedCollector::sample({runner, processes, wallClock, VESK_POWERMETRICS}, ::geteuid());
    } catch (const MonitorError&) {
      if (triesLeft == 0) throw;
    }
  }
}

// Two ends of one connection within this process; the second hands on whatever the first one sends.
class Stream {
 public:
  Stream() {
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
    thread_ = std::thread([this] { carry(); });
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream() {
    stop_ = true;
    thread_.join();
    ::close(sender_);
    if (receiver_ >= 0) ::close(receiver_);
  }

 private:
  void carry() const {
    std::array<char, 1'000> bytes{};
    while (!stop_) {
      if (::send(sender_, bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0)
        (void)!::recv(receiver_, bytes.data(), bytes.size(), 0);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }

  int sender_ = -1;
  int receiver_ = -1;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

TEST(PowermetricsProgramTest, HelpersCollectorReadsTheProgramOnThisMachine) {
  const Stream stream;
  platform::ProcfsProcessTable processes("/proc", std::make_shared<platform::BootTime>("/proc"));
  const AdvancedSample sample = takeSample(processes);
  EXPECT_GE(sample.interval, 1.0);
  EXPECT_LT(sample.interval, 6.0);
  const auto info = processInfo(processes, ::getpid());
  ASSERT_TRUE(info);
  const auto own = std::find_if(sample.processes.begin(), sample.processes.end(),
                                [&](const auto& process) { return process.key == info->key; });
  ASSERT_NE(own, sample.processes.end());
  EXPECT_TRUE(own->energy);
  platform::NetlinkTcpSockets sockets;
  if (!sockets.current()) GTEST_SKIP() << "the kernel answers no socket diagnostics here";
  ASSERT_TRUE(own->download && own->upload);
  EXPECT_GT(*own->download, 0.0);
  EXPECT_GT(*own->upload, 0.0);
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
