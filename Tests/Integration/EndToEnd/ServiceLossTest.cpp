// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "Tests/Integration/EndToEnd/Playground.h"

namespace monitor::lab {
namespace {

int rounds() {
  return std::getenv("VESK_LONG") != nullptr ? 200 : 20;
}

using ServiceLoss = Playground;

TEST_F(ServiceLoss, GivesNormalPlaybackBackEveryTimeTheServiceIsKilled) {
  std::vector<std::size_t> silences;
  for (int round = 0; round < rounds(); ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    const std::size_t asked = recorder.frames();
    setGain("40%");
    ASSERT_TRUE(hear(static_cast<double>(0.4F), asked).has_value());
    const pid_t victim = service();
    ASSERT_NE(victim, 0);
    const std::size_t killed = recorder.frames();
    ASSERT_EQ(::kill(victim, SIGKILL), 0);
    const auto back = hear(1.0, killed);
    ASSERT_TRUE(back.has_value());
    EXPECT_LE(back->silentFrames, 48'000U);
    silences.push_back(back->silentFrames);
  }
  // Single ones depend on when a busy machine lets the session manager run.
  std::sort(silences.begin(), silences.end());
  EXPECT_LE(silences[silences.size() / 2], 4'800U);
}

TEST_F(ServiceLoss, GivesNormalPlaybackBackWhenTheServiceIsAskedToEnd) {
  setGain("40%");
  const std::size_t ended = recorder.frames();
  ASSERT_TRUE(hear(static_cast<double>(0.4F), ended).has_value());
  ASSERT_EQ(::kill(service(), SIGTERM), 0);
  EXPECT_TRUE(hear(1.0, ended).has_value());
}

TEST_F(ServiceLoss, GivesNormalPlaybackBackWhenTheBusIsLost) {
  setGain("40%");
  const std::size_t lost = recorder.frames();
  ASSERT_TRUE(hear(static_cast<double>(0.4F), lost).has_value());
  stack.kill(Daemon::Bus);
  EXPECT_TRUE(hear(1.0, lost).has_value());
}

}  // namespace
}  // namespace monitor::lab
