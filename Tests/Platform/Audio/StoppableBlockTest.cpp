// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/StoppableBlock.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>

namespace monitor::platform::test {
namespace {

// One buffer of one channel, in and out.
struct Cycle {
  std::array<float, 4> in{0.5F, 0.5F, 0.5F, 0.5F};
  std::array<float, 4> out{9.0F, 9.0F, 9.0F, 9.0F};
  MonitorAudioBufferList input{1, {{1, sizeof in, in.data()}}};
  MonitorAudioBufferList output{1, {{1, sizeof out, out.data()}}};

  void run(StoppableBlock& block) { block.run(&input, &output); }
};

TEST(StoppableBlock, RunsUntilItIsStoppedAndIsSilenceFromThenOn) {
  int entered = 0;
  StoppableBlock block([&](const MonitorAudioBufferList*, MonitorAudioBufferList* output) {
    ++entered;
    static_cast<float*>(output->mBuffers[0].mData)[0] = 0.25F;
  });
  Cycle cycle;
  cycle.run(block);
  EXPECT_EQ(cycle.out[0], 0.25F);
  EXPECT_EQ(cycle.out[1], 9.0F) << "what the block leaves is left";
  EXPECT_TRUE(block.stop());
  cycle.run(block);
  EXPECT_EQ(cycle.out, (std::array<float, 4>{}));
  EXPECT_EQ(entered, 1);
  EXPECT_TRUE(block.stop());
}

TEST(StoppableBlock, IsNeverEnteredAfterStopWhileItsThreadRunsOn) {
  for (int round = 0; round < 50; ++round) {
    std::atomic<bool> allowed{true};
    std::atomic<int> entered{0};
    std::atomic<int> strayed{0};
    StoppableBlock block([&](const MonitorAudioBufferList*, MonitorAudioBufferList*) {
      ++entered;
      if (!allowed.load()) ++strayed;
    });
    std::atomic<bool> end{false};
    std::thread realtime([&] {
      Cycle cycle;
      while (!end.load()) cycle.run(block);
    });
    while (entered.load() < 3) std::this_thread::yield();
    ASSERT_TRUE(block.stop());
    allowed = false;
    const int before = entered.load();
    for (int turn = 0; turn < 20; ++turn) std::this_thread::yield();
    end = true;
    realtime.join();
    EXPECT_EQ(strayed, 0);
    EXPECT_EQ(entered, before);
  }
}

TEST(StoppableBlock, StopWaitsForTheRunUnderWayAndGivesUpOnOneThatHangs) {
  std::atomic<bool> inside{false};
  std::atomic<bool> finish{false};
  int entered = 0;
  StoppableBlock block([&](const MonitorAudioBufferList*, MonitorAudioBufferList*) {
    ++entered;
    inside = true;
    while (!finish.load()) std::this_thread::yield();
  });
  std::thread realtime([&] {
    Cycle cycle;
    cycle.run(block);
    cycle.run(block);
  });
  while (!inside.load()) std::this_thread::yield();
  EXPECT_FALSE(block.stop());
  finish = true;
  EXPECT_TRUE(block.stop());
  realtime.join();
  EXPECT_EQ(entered, 1) << "no run begins after the one that hung";
}

}  // namespace
}  // namespace monitor::platform::test
