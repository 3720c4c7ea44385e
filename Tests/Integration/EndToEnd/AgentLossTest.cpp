// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <csignal>

#include "Tests/Integration/EndToEnd/Playground.h"

namespace monitor::lab {
namespace {

using AgentLoss = Playground;

TEST_F(AgentLoss, GivesNormalPlaybackBackAtOnceWhenTheAgentIsKilled) {
  setGain("40%");
  const std::size_t killed = recorder.frames();
  ASSERT_TRUE(hear(static_cast<double>(0.4F), killed).has_value());
  ASSERT_NE(agent(), 0);
  ASSERT_EQ(::kill(agent(), SIGKILL), 0);
  EXPECT_TRUE(hear(1.0, killed, Milliseconds(2'000)).has_value());
}

TEST_F(AgentLoss, KeepsTheGainAfterTheCommandHasEnded) {
  setGain("40%");
  const std::size_t asked = recorder.frames();
  ASSERT_TRUE(hear(static_cast<double>(0.4F), asked).has_value());
  recorder.waitSeconds(3.0);  // longer than the agent's interval of two seconds
  EXPECT_TRUE(hear(static_cast<double>(0.4F), recorder.frames() - 4'800).has_value());
  EXPECT_FALSE(hear(1.0, recorder.frames() - 96'000, Milliseconds(0)).has_value());
}

// The service's watchdog gives up on a client after 8 s; the recording's own frames are the clock.
TEST_F(AgentLoss, GivesNormalPlaybackBackWhenTheAgentHangsAndSetsTheGainAgainWhenItWakes) {
  setGain("40%");
  const pid_t sleeper = agent();
  ASSERT_NE(sleeper, 0);
  const std::size_t stopped = recorder.frames();
  ASSERT_TRUE(hear(static_cast<double>(0.4F), stopped).has_value());
  ASSERT_EQ(::kill(sleeper, SIGSTOP), 0);
  const auto back = hear(1.0, stopped, Milliseconds(20'000));
  ASSERT_TRUE(back.has_value());
  const double seconds = static_cast<double>(back->first - stopped) / 48'000.0;
  EXPECT_GE(seconds, 5.5);   // the last sign of life may be 2 s old
  EXPECT_LE(seconds, 10.5);  // the watchdog looks once a second
  const std::size_t woken = recorder.frames();
  ASSERT_EQ(::kill(sleeper, SIGCONT), 0);
  EXPECT_TRUE(hear(static_cast<double>(0.4F), woken).has_value());
  EXPECT_THAT(vesk({"status"}).output, testing::HasSubstr("lost"));
}

}  // namespace
}  // namespace monitor::lab
