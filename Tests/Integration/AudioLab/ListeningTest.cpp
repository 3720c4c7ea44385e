// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/Listening.h"

#include <gtest/gtest.h>

#include "Tools/AudioLab/Player.h"
#include "Tools/AudioLab/PrivateStack.h"

namespace monitor::lab {
namespace {

TEST(Listening, HearsAProgramBeginAndCountsTheSilenceBefore) {
  const PrivateStack stack({.pulse = false});
  Recorder recorder(stack.remote());
  const std::size_t from = recorder.frames();
  const Player player(stack, {});
  const auto heard = waitForGain(recorder, 0, 1.0, from);
  ASSERT_TRUE(heard.has_value());
  EXPECT_EQ(heard->gain, 1.0);
  EXPECT_EQ(heard->silentFrames, heard->first - from);
  EXPECT_NE(recorder.recording(heard->first).channels[0].front(), 0.0F);
}

TEST(Listening, GivesUpAtTheDeadline) {
  const PrivateStack stack({.pulse = false});
  Recorder recorder(stack.remote());
  const Player player(stack, {});
  EXPECT_FALSE(waitForGain(recorder, 0, 0.4, recorder.frames(), Milliseconds(100)).has_value());
}

}  // namespace
}  // namespace monitor::lab
