// SPDX-License-Identifier: MIT
#include "Platform/Posix/PosixToolRunner.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace monitor::platform {
namespace {

using Outcome = ToolResult::Outcome;

class PosixToolRunnerTest : public ::testing::Test {
 protected:
  ToolResult shell(const std::string& script, double timeout = 10.0, std::size_t limit = 1 << 20) {
    const auto start = std::chrono::steady_clock::now();
    auto result = runner.run({.executable = "/bin/sh",
                              .arguments = {"-c", script},
                              .environment = {{"PATH", "/usr/bin:/bin"}, {"LC_ALL", "C"}},
                              .errorsToOutput = errorsToOutput,
                              .timeout = timeout,
                              .outputLimit = limit});
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // Whatever happened, no child is left behind.
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
    return result;
  }

  PosixToolRunner runner;
  bool errorsToOutput = false;
  double seconds = 0.0;
};

// Whether the process still runs; one that only waits to be collected by its new parent does not.
bool alive(PosixToolRunner& runner, const std::string& pidText) {
  const auto state = runner.run({.executable = "/bin/ps",
                                 .arguments = {"-o", "stat=", "-p", std::to_string(std::stoi(pidText))},
                                 .environment = {},
                                 .timeout = 10.0,
                                 .outputLimit = 1'000});
  return !state.output.empty() && state.output.front() != 'Z';
}

TEST_F(PosixToolRunnerTest, ReturnsTheOutputOfARunThatSucceeds) {
  const auto result = shell("printf 'a\\0b'");
  EXPECT_TRUE(result.succeeded());
  EXPECT_EQ(result.output, std::string("a\0b", 3));
}

TEST_F(PosixToolRunnerTest, ReportsTheExitStatus) {
  const auto result = shell("echo text; exit 3");
  EXPECT_EQ(result.outcome, Outcome::Exited);
  EXPECT_EQ(result.code, 3);
  EXPECT_FALSE(result.succeeded());
  EXPECT_EQ(result.output, "text\n");
}

TEST_F(PosixToolRunnerTest, ReportsTheSignalThatEndedTheTool) {
  const auto result = shell("kill -9 $$");
  EXPECT_EQ(result.outcome, Outcome::Signalled);
  EXPECT_EQ(result.code, SIGKILL);
}

TEST_F(PosixToolRunnerTest, MissingToolFailsToStart) {
  const auto result = runner.run({.executable = "/nonexistent/tool", .timeout = 1.0, .outputLimit = 10});
  EXPECT_EQ(result.outcome, Outcome::StartFailed);
  EXPECT_EQ(result.code, ENOENT);
}

TEST_F(PosixToolRunnerTest, ArgumentsAndEnvironmentArriveExactlyAndNothingIsInherited) {
  ::setenv("VESK_TEST_INHERITED", "yes", 1);
  const auto result = runner.run({.executable = "/usr/bin/env",
                                  .environment = {{"A", "1"}, {"B", "2 3"}},
                                  .timeout = 10.0,
                                  .outputLimit = 1'000});
  EXPECT_EQ(result.output, "A=1\nB=2 3\n");
}

TEST_F(PosixToolRunnerTest, ErrorsAreThrownAwayUnlessTheyJoinTheOutput) {
  EXPECT_EQ(shell("echo no >&2; echo yes").output, "yes\n");
  errorsToOutput = true;
  EXPECT_EQ(shell("echo both >&2; echo yes").output, "both\nyes\n");
}

TEST_F(PosixToolRunnerTest, SlowOutputIsReadToItsEnd) {
  EXPECT_EQ(shell("for i in 1 2 3; do echo $i; sleep 0.05; done").output, "1\n2\n3\n");
}

TEST_F(PosixToolRunnerTest, OutputOfExactlyTheLimitIsAccepted) {
  const auto result = shell("head -c 100000 /dev/zero", 10.0, 100'000);
  EXPECT_TRUE(result.succeeded());
  EXPECT_EQ(result.output.size(), 100'000U);
}

TEST_F(PosixToolRunnerTest, OneByteOverTheLimitEndsTheRun) {
  EXPECT_EQ(shell("head -c 100001 /dev/zero", 10.0, 100'000).outcome, Outcome::OutputTooLarge);
}

TEST_F(PosixToolRunnerTest, EndlessOutputIsCutAtTheLimit) {
  EXPECT_EQ(shell("exec yes", 10.0, 1 << 20).outcome, Outcome::OutputTooLarge);
  EXPECT_LT(seconds, 5.0);
}

TEST_F(PosixToolRunnerTest, ToolThatHangsIsTerminatedAtItsTimeOut) {
  const auto result = shell("echo begun; exec sleep 60", 0.3);
  EXPECT_EQ(result.outcome, Outcome::Signalled);
  EXPECT_EQ(result.code, SIGTERM);
  EXPECT_EQ(result.output, "begun\n");
  EXPECT_GE(seconds, 0.3);
  EXPECT_LT(seconds, 2.3);
}

TEST_F(PosixToolRunnerTest, ToolThatIgnoresTermIsKilledASecondLater) {
  const auto result = shell("trap '' TERM; while :; do sleep 0.05; done", 0.2);
  EXPECT_EQ(result.outcome, Outcome::Signalled);
  EXPECT_EQ(result.code, SIGKILL);
  EXPECT_GE(seconds, 1.2);
  EXPECT_LT(seconds, 2.2);
}

TEST_F(PosixToolRunnerTest, ToolThatClosesItsOutputButLivesOnIsStillRunning) {
  const auto result = shell("echo done; exec >&- 2>&-; sleep 60", 1.2);
  EXPECT_EQ(result.outcome, Outcome::StillRunning);
  EXPECT_GE(seconds, 1.0);
  EXPECT_LT(seconds, 3.2);
}

TEST_F(PosixToolRunnerTest, ToolThatEndsSoonAfterItsOutputHasSucceeded) {
  EXPECT_TRUE(shell("echo done; exec >&- 2>&-; sleep 0.2").succeeded());
}

TEST_F(PosixToolRunnerTest, GrandchildThatHoldsThePipeIsKilledWithTheGroup) {
  const auto result = shell("sleep 60 & echo $!; exit 0", 0.3);
  EXPECT_EQ(result.outcome, Outcome::Exited);
  EXPECT_LT(seconds, 2.3);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(alive(runner, result.output));
}

TEST_F(PosixToolRunnerTest, GrandchildInASessionOfItsOwnCannotHoldTheRunUp) {
  const auto result = shell("setsid sleep 5 & sleep 0.1; echo begun", 0.3);
  EXPECT_EQ(result.outcome, Outcome::StillRunning);
  EXPECT_EQ(result.output, "begun\n");
  EXPECT_LT(seconds, 2.3);
}

TEST_F(PosixToolRunnerTest, TermReachesAToolEvenWhereTheCallerIgnoresIt) {
  auto* const previous = std::signal(SIGTERM, SIG_IGN);
  const auto result = shell("exec sleep 60", 0.2);
  std::signal(SIGTERM, previous);
  EXPECT_EQ(result.code, SIGTERM);
}

TEST_F(PosixToolRunnerTest, LeavesNoDescriptorBehind) {
  const auto count = [] {
    return std::distance(std::filesystem::directory_iterator("/dev/fd"),
                         std::filesystem::directory_iterator());
  };
  (void)shell("true");
  const auto before = count();
  for (int round = 0; round < 5; ++round) (void)shell("echo text");
  EXPECT_EQ(count(), before);
}

TEST_F(PosixToolRunnerTest, RunsInSeveralThreadsDoNotDisturbEachOther) {
  std::vector<std::thread> threads;
  std::array<ToolResult, 4> results;
  for (std::size_t index = 0; index < results.size(); ++index) {
    threads.emplace_back([this, index, &results] {
      results[index] =
          runner.run({.executable = "/bin/sh",
                      .arguments = {"-c", "for i in 1 2 3 4 5; do echo " + std::to_string(index) + "; done"},
                      .environment = {{"PATH", "/usr/bin:/bin"}},
                      .timeout = 10.0,
                      .outputLimit = 1'000});
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (std::size_t index = 0; index < results.size(); ++index) {
    const std::string line = std::to_string(index) + "\n";
    EXPECT_EQ(results[index].output, line + line + line + line + line);
    EXPECT_TRUE(results[index].succeeded());
  }
}

}  // namespace
}  // namespace monitor::platform
