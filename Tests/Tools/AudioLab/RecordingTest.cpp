// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/Recording.h"

#include <gtest/gtest.h>

namespace monitor::lab {
namespace {

Recording threeCycles() {
  Recording recording;
  recording.channels.assign(1, std::vector<float>(768));
  recording.cycles = {{0, 256, 1000, 5'000'000}, {256, 256, 1256, 10'000'000}, {512, 256, 1512, 15'000'000}};
  return recording;
}

TEST(Recording, CountsTheFramesOfCyclesThatItMissed) {
  Recording recording = threeCycles();
  EXPECT_EQ(recording.missedFrames(), 0U);
  recording.cycles[2].position = 2024;
  EXPECT_EQ(recording.missedFrames(), 512U);
  EXPECT_EQ(recording.missedFrames(513), 512U);
  EXPECT_EQ(recording.missedFrames(512), 0U);
}

TEST(Recording, GivesEveryFrameTheTimeOfItsCycle) {
  const Recording recording = threeCycles();
  EXPECT_EQ(recording.timeOf(0), 5'000'000U);
  EXPECT_EQ(recording.timeOf(255), 5'000'000U);
  EXPECT_EQ(recording.timeOf(256), 10'000'000U);
  EXPECT_EQ(recording.timeOf(767), 15'000'000U);
  EXPECT_FALSE(recording.timeOf(768).has_value());
}

TEST(Recording, FindsTheFirstCycleFromATimeOn) {
  const Recording recording = threeCycles();
  EXPECT_EQ(recording.frameAt(0), 0U);
  EXPECT_EQ(recording.frameAt(10'000'000), 256U);
  EXPECT_EQ(recording.frameAt(10'000'001), 512U);
  EXPECT_EQ(recording.frameAt(15'000'001), 768U);
}

}  // namespace
}  // namespace monitor::lab
