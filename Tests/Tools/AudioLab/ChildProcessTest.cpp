// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/ChildProcess.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <string>

#include "Tools/AudioLab/LabError.h"

namespace monitor::lab {
namespace {

SpawnOptions shell(const std::string& script) {
  return {.command = {"sh", "-c", script}, .environment = neutralEnvironment()};
}

TEST(ChildProcess, ReturnsOutputAndStatusOfACommand) {
  const auto result = runCommand(shell("echo one; printf two; exit 3"), Milliseconds(10'000));
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.output, "one\ntwo\n");
  EXPECT_EQ(runCommand(shell("kill -9 $$"), Milliseconds(10'000)).status, 128 + SIGKILL);
}

TEST(ChildProcess, KillsACommandAtItsDeadline) {
  EXPECT_THROW(static_cast<void>(runCommand(shell("sleep 100"), Milliseconds(20))), LabError);
}

TEST(ChildProcess, NamesAProgramThatIsNotInstalled) {
  try {
    const ChildProcess child({.command = {"no-such-program"}, .environment = neutralEnvironment()});
    FAIL() << "started a program that does not exist";
  } catch (const LabError& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("\"no-such-program\" is not installed"));
  }
}

TEST(ChildProcess, TalksLineByLine) {
  auto options = shell("while read -r line; do echo \"<$line>\"; done");
  options.talk = true;
  ChildProcess child(options);
  child.send("first");
  EXPECT_EQ(child.receive(Milliseconds(10'000)), "<first>");
  EXPECT_EQ(child.receive(Milliseconds(0)), std::nullopt);
  child.send("second");
  EXPECT_EQ(child.receive(Milliseconds(10'000)), "<second>");
  child.closeInput();
  const auto status = child.wait(Milliseconds(10'000));
  ASSERT_TRUE(status.has_value());
  EXPECT_TRUE(WIFEXITED(*status));
  EXPECT_THROW(child.send("third"), LabError);
}

TEST(ChildProcess, TakesItsWholeGroupAlong) {
  auto options = shell("sleep 100 & echo $!; wait");
  options.talk = true;
  pid_t grandchild = 0;
  {
    ChildProcess child(options);
    grandchild = std::stoi(child.receive(Milliseconds(10'000)).value());
    EXPECT_EQ(::getpgid(grandchild), child.pid());
  }
  std::string state = "?";
  for (int i = 0; i < 1000 && !state.empty() && state != "Z"; ++i) {
    std::ifstream stream("/proc/" + std::to_string(grandchild) + "/stat");
    std::string number, name;
    state.clear();
    stream >> number >> name >> state;
    ::usleep(1'000);
  }
  EXPECT_TRUE(state.empty() || state == "Z") << state;
}

TEST(ChildProcess, GoesWithTheObjectItWasMovedTo) {
  ChildProcess first(shell("sleep 100"));
  const pid_t pid = first.pid();
  ChildProcess second = std::move(first);
  EXPECT_EQ(second.pid(), pid);
  EXPECT_TRUE(second.running());
  second = ChildProcess(shell("sleep 100"));
  EXPECT_EQ(::kill(pid, 0), -1);
  second.terminate(Milliseconds(10'000));
  EXPECT_FALSE(second.running());
}

TEST(Environment, LeavesTheDesktopOut) {
  const ScopedEnvironment before(
      {{"XDG_RUNTIME_DIR", "/desk"}, {"PULSE_SERVER", "desk"}, {"LAB_OTHER", "kept"}});
  const auto neutral = neutralEnvironment();
  EXPECT_FALSE(neutral.contains("XDG_RUNTIME_DIR"));
  EXPECT_FALSE(neutral.contains("PULSE_SERVER"));
  EXPECT_EQ(neutral.at("LAB_OTHER"), "kept");
}

TEST(Environment, PutsFormerValuesBack) {
  const ScopedEnvironment outer({{"XDG_CONFIG_HOME", "/outer"}, {"LAB_VALUE", "outer"}});
  {
    const ScopedEnvironment inner({{"LAB_VALUE", "inner"}, {"LAB_NEW", "new"}});
    EXPECT_STREQ(std::getenv("LAB_VALUE"), "inner");
    EXPECT_STREQ(std::getenv("LAB_NEW"), "new");
    EXPECT_EQ(std::getenv("XDG_CONFIG_HOME"), nullptr);  // of the desktop, and not set by the inner one
  }
  EXPECT_STREQ(std::getenv("LAB_VALUE"), "outer");
  EXPECT_EQ(std::getenv("LAB_NEW"), nullptr);
  EXPECT_STREQ(std::getenv("XDG_CONFIG_HOME"), "/outer");
}

}  // namespace
}  // namespace monitor::lab
