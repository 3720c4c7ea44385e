// SPDX-License-Identifier: MIT
// An audio server that dies and comes back, seen from the command line.
#include <gmock/gmock.h>

#include "Tests/Integration/EndToEnd/Playground.h"

namespace monitor::lab {
namespace {

constexpr double kHeardGain = static_cast<double>(0.4F);

// With a program that outlives the audio server, as browsers do.
class ServerReturn : public Playground {
 protected:
  ServerReturn() : Playground({"--reconnect"}) {}
};

TEST_F(ServerReturn, ProgramPlaysAtItsGainAgainWithoutAnyCommand) {
  const std::size_t asked = recorder.frames();
  setGain("40%");
  ASSERT_TRUE(hear(kHeardGain, asked).has_value());
  const pid_t holder = agent();

  stack.kill(Daemon::PipeWire);
  stack.start(Daemon::PipeWire);
  stack.restart(Daemon::SessionManager);
  stack.restart(Daemon::Pulse);
  const Recorder again(stack.remote());
  EXPECT_TRUE(waitForGain(again, 0, kHeardGain, 0, Milliseconds(30'000)).has_value());
  EXPECT_EQ(agent(), holder) << "the gain is held by the agent that it was given to";
  // It stays.
  again.waitSeconds(3.0);
  EXPECT_TRUE(waitForGain(again, 0, kHeardGain, again.frames() - 4'800).has_value());
  EXPECT_THAT(vesk({"apps"}).output, testing::HasSubstr("40 %"));
}

}  // namespace
}  // namespace monitor::lab
