// SPDX-License-Identifier: MIT
#include "Tools/vesk/Agent/PidfdPresence.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>

#include "Tools/AudioLab/ChildProcess.h"

namespace monitor::vesk::agent {
namespace {

lab::ChildProcess sleeper() {
  lab::SpawnOptions options;
  options.command = {"sleep", "600"};
  options.environment = lab::neutralEnvironment();
  return lab::ChildProcess(options);
}

AudioApplication programOf(const std::vector<const lab::ChildProcess*>& processes) {
  AudioApplication app;
  app.id = "org.example.player";
  std::uint64_t start = 0;
  for (const lab::ChildProcess* process : processes) app.processes.push_back({process->pid(), ++start});
  return app;
}

std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator());
}

TEST(PidfdPresence, AProgramLivesAsLongAsOneOfItsProcesses) {
  lab::ChildProcess first = sleeper();
  lab::ChildProcess second = sleeper();
  const AudioApplication app = programOf({&first, &second});
  PidfdPresence presence;
  presence.saw(app);
  EXPECT_TRUE(presence.lives(app));
  first.kill();
  EXPECT_TRUE(presence.lives(app));
  second.kill();
  EXPECT_FALSE(presence.lives(app));
}

TEST(PidfdPresence, OnlyTheProcessesSeenLastCount) {
  lab::ChildProcess first = sleeper();
  lab::ChildProcess second = sleeper();
  PidfdPresence presence;
  presence.saw(programOf({&first, &second}));
  const AudioApplication app = programOf({&first});
  presence.saw(app);
  first.kill();
  EXPECT_FALSE(presence.lives(app));
}

TEST(PidfdPresence, WhatWasNeverSeenOrForgottenDoesNotLive) {
  lab::ChildProcess process = sleeper();
  const AudioApplication app = programOf({&process});
  PidfdPresence presence;
  EXPECT_FALSE(presence.lives(app));
  presence.saw(app);
  presence.forget(app.id);
  EXPECT_FALSE(presence.lives(app));
}

TEST(PidfdPresence, AProcessThatIsGoneAlreadyDoesNotLive) {
  lab::ChildProcess process = sleeper();
  const AudioApplication app = programOf({&process});
  process.kill();
  PidfdPresence presence;
  presence.saw(app);
  EXPECT_FALSE(presence.lives(app));
}

TEST(PidfdPresence, SeeingTheSameProcessesAgainOpensNothing) {
  lab::ChildProcess process = sleeper();
  const AudioApplication app = programOf({&process});
  const std::ptrdiff_t before = openDescriptors();
  {
    PidfdPresence presence;
    for (int round = 0; round < 10; ++round) presence.saw(app);
    EXPECT_EQ(openDescriptors(), before + 1);
  }
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
}  // namespace monitor::vesk::agent
