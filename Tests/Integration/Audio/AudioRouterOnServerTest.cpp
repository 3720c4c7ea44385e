// SPDX-License-Identifier: MIT
// The whole engine on a real audio server: routers, their queues and the machine's own processes.
#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>

#include "MonitorAudioEngine/AudioRouteError.h"
#include "Tests/Integration/Audio/RoutersOnStack.h"
#include "Tools/AudioLab/HardwareSink.h"

namespace monitor::platform::test {
namespace {

std::optional<AudioApplication> listed(const std::shared_ptr<AudioRouter>& router, const Player& player) {
  return ask(router, player).application;
}

void stop(const std::shared_ptr<AudioRouter>& router) {
  (void)onQueue<int>(router, [](AudioRouter& on) {
    on.stop();
    return 0;
  });
}

std::optional<std::string> standingMessage(const std::shared_ptr<AudioRouter>& router) {
  return onQueue<std::optional<std::string>>(router,
                                             [](AudioRouter& on) { return on.applications().message; });
}

const std::string kInvalidFormat = AudioRouteError::invalidFormat().what();

TEST(AudioRouterOnServer, TwoClientsInEveryOrderOfSettingAndStopping) {
  RoutersOnStack on;
  Player left{on.stack, {.name = "Left", .arguments = {"--channel", "0"}}};
  Player right{on.stack, {.name = "Right", .arguments = {"--channel", "1"}}};
  ASSERT_TRUE(on.plays({&left, &right}));
  Listening listening{on};
  for (const bool firstSetsFirst : {true, false}) {
    for (const bool firstStopsFirst : {true, false}) {
      const auto first = on.client();
      const auto second = on.client();
      const auto setFirst = [&] { EXPECT_EQ(setGain(first, left, 0.4), ""); };
      const auto setSecond = [&] { EXPECT_EQ(setGain(second, right, 0.25), ""); };
      if (firstSetsFirst) setFirst();
      setSecond();
      if (!firstSetsFirst) setFirst();
      EXPECT_TRUE(becomes(listening, 0.4, 0));
      EXPECT_TRUE(becomes(listening, 0.25, 1));
      stop(firstStopsFirst ? first : second);
      EXPECT_TRUE(becomes(listening, firstStopsFirst ? 1.0 : 0.4, 0));
      EXPECT_TRUE(becomes(listening, firstStopsFirst ? 0.25 : 1.0, 1));
      stop(firstStopsFirst ? second : first);
      EXPECT_TRUE(becomes(listening, 1.0, 0));
      EXPECT_TRUE(becomes(listening, 1.0, 1));
    }
  }
  EXPECT_TRUE(on.isClean()) << testing::PrintToString(on.leftovers());
}

TEST(AudioRouterOnServer, ClientThatGoesGivesItsProgramsBackAndLeavesTheOthers) {
  RoutersOnStack on;
  Player left{on.stack, {.name = "Left", .arguments = {"--channel", "0"}}};
  Player right{on.stack, {.name = "Right", .arguments = {"--channel", "1"}}};
  ASSERT_TRUE(on.plays({&left, &right}));
  Listening listening{on};
  auto first = on.client();
  const auto second = on.client();
  ASSERT_EQ(setGain(first, left, 0.4), "");
  ASSERT_EQ(setGain(second, right, 0.25), "");
  first.reset();
  EXPECT_TRUE(becomes(listening, 1.0, 0));
  EXPECT_TRUE(becomes(listening, 0.25, 1));
}

TEST(AudioRouterOnServer, GainChangesInPlaceAndOneIsNormalPlayback) {
  RoutersOnStack on;
  Player player{on.stack, {.name = "Player", .arguments = {"--channel", "0"}}};
  ASSERT_TRUE(on.plays({&player}));
  Listening listening{on};
  const auto client = on.client();
  for (const double gain : {0.5, 0.125, 0.5}) {
    ASSERT_EQ(setGain(client, player, gain), "");
    EXPECT_TRUE(becomes(listening, gain));
    EXPECT_EQ(listed(client, player)->gain, gain);
  }
  ASSERT_EQ(setGain(client, player, 1.0), "");
  EXPECT_TRUE(becomes(listening, 1.0));
  EXPECT_TRUE(on.isClean()) << testing::PrintToString(on.leftovers());
}

// Taken and given back again and again, a program is heard on one path at a time.
TEST(AudioRouterOnServer, ProgramIsNeverLouderThanItPlays) {
  RoutersOnStack on;
  Player player{on.stack, {.name = "Player", .arguments = {"--channel", "0"}}};
  ASSERT_TRUE(on.plays({&player}));
  Listening listening{on};
  const auto client = on.client();
  for (int round = 0; round < 10; ++round) {
    ASSERT_EQ(setGain(client, player, 0.8), "");
    ASSERT_TRUE(becomes(listening, 0.8));
    stop(client);
    ASSERT_TRUE(becomes(listening, 1.0));
  }
  const auto heard = lab::measureSteadiness(listening.stretches(0), 0, listening.frames());
  EXPECT_LE(heard.highest, 1.0 + 1e-6);
}

class UnsupportedSink : public testing::TestWithParam<std::vector<std::string>> {};
INSTANTIATE_TEST_SUITE_P(Channels, UnsupportedSink,
                         testing::Values(std::vector<std::string>{"MONO"},
                                         std::vector<std::string>{"FL", "FR", "FC", "LFE", "RL", "RR"}),
                         [](const auto& sink) { return "Of" + std::to_string(sink.param.size()); });

TEST_P(UnsupportedSink, IsAnInvalidFormatAndNothingIsLeftBehind) {
  RoutersOnStack on(
      lab::StackOptions{.sinks = {lab::SinkOptions{.positions = GetParam(), .priority = 1010}}});
  Player player{on.stack, {.name = "Player"}};
  ASSERT_TRUE(on.plays({&player}));
  const auto client = on.client();
  EXPECT_EQ(setGain(client, player, 0.4), kInvalidFormat);
  EXPECT_EQ(listed(client, player)->gain, 1.0);
  EXPECT_TRUE(on.isClean()) << testing::PrintToString(on.leftovers());
}

TEST(AudioRouterOnServer, SinkWithIntegerHardwareAtAnotherRateIsRouted) {
  RoutersOnStack on;
  const lab::HardwareSink hardware(on.stack.remote());
  Player player{on.stack, {.name = "Player", .arguments = {"--channel", "0"}}};
  ASSERT_TRUE(on.plays({&player}));
  Listening listening{on, "lab-hardware"};
  const auto client = on.client();
  ASSERT_TRUE(becomes(listening, 1.0));
  ASSERT_EQ(setGain(client, player, 0.4), "");
  // The monitor is on the graph's side: the same slope, so the same pitch.
  EXPECT_TRUE(becomes(listening, 0.4));
  ASSERT_EQ(setGain(client, player, 1.0), "");
  EXPECT_TRUE(becomes(listening, 1.0));
}

TEST(AudioRouterOnServer, RouteFollowsTheDefaultOutput) {
  RoutersOnStack on;
  Player player{on.stack, {.name = "Player", .arguments = {"--channel", "0"}}};
  ASSERT_TRUE(on.plays({&player}));
  Listening onA{on, "lab-sink-a"};
  Listening onB{on, "lab-sink-b"};
  const auto client = on.client();
  ASSERT_EQ(setGain(client, player, 0.4), "");
  ASSERT_TRUE(becomes(onA, 0.4));
  on.graph.setDefaultSink("lab-sink-b");
  EXPECT_TRUE(becomes(onB, 0.4));
  EXPECT_EQ(listed(client, player)->gain, 0.4);
}

// What the user's volume control does to move one stream.
void moveStream(RoutersOnStack& on, const std::string& stream, const std::string& sink) {
  const lab::GraphView view = on.graph.view();
  const auto* node = view.nodeNamed(stream);
  const auto* target = view.nodeNamed(sink);
  ASSERT_NE(node, nullptr);
  ASSERT_NE(target, nullptr);
  on.graph.setMetadata(node->id, "target.object", "Spa:Id", target->property("object.serial"));
}

TEST(AudioRouterOnServer, ProgramThatTheUserMovesAwayKeepsItsRouteUntilItIsMovedBack) {
  RoutersOnStack on;
  Player player{on.stack, {.name = "Player", .arguments = {"--channel", "0"}}};
  ASSERT_TRUE(on.plays({&player}));
  const auto client = on.client();
  ASSERT_EQ(setGain(client, player, 0.4), "");
  Listening elsewhere{on, "lab-sink-b"};
  moveStream(on, "Player", "lab-sink-b");
  ASSERT_TRUE(becomes(elsewhere, 1.0)) << "the user's choice of output counts, and the route is not there";
  // Nothing else plays on the first output, and nobody records it: left alone it has no cycles, and is
  // suspended after five seconds; a route without cycles ends after three. The client is heard of all the
  // time.
  for (int second = 0; second < 10; ++second) {
    elsewhere.recorder.waitSeconds(1.0);
    const auto application = listed(client, player);
    ASSERT_TRUE(application);
    ASSERT_EQ(application->gain, 0.4) << "after " << second + 1 << " s";
  }
  EXPECT_EQ(standingMessage(client), std::nullopt);
  moveStream(on, "Player", "lab-sink-a");
  Listening listening{on};
  EXPECT_TRUE(becomes(listening, 0.4)) << "caught again";
  EXPECT_EQ(listed(client, player)->gain, 0.4);
  EXPECT_EQ(standingMessage(client), std::nullopt);
}

// The route's output sleeps when the program begins to play on the other one.
TEST(AudioRouterOnServer, SilentProgramThatResumesOnAnotherOutputKeepsItsRoute) {
  RoutersOnStack on;
  Player player{on.stack, {.name = "Player", .arguments = {"--channel", "0"}}};
  ASSERT_TRUE(on.plays({&player}));
  const auto client = on.client();
  ASSERT_EQ(setGain(client, player, 0.4), "");
  player.pause();
  const auto stateOf = [](const lab::GraphView& view, const char* node) {
    const auto* found = view.nodeNamed(node);
    return found == nullptr ? std::string{} : found->state;
  };
  Listening elsewhere{on, "lab-sink-b"};
  const auto staysFor = [&](int seconds) {
    for (int second = 0; second < seconds; ++second) {
      elsewhere.recorder.waitSeconds(1.0);
      const auto application = listed(client, player);
      if (!application || application->gain != 0.4) return false;
    }
    return true;
  };
  for (int wait = 0; stateOf(on.graph.view(), "lab-sink-a") != "suspended"; ++wait) {
    ASSERT_LT(wait, 30) << "the output does not go to sleep";
    ASSERT_TRUE(staysFor(1));
  }
  moveStream(on, "Player", "lab-sink-b");
  player.resume();
  ASSERT_TRUE(becomes(elsewhere, 1.0));
  EXPECT_TRUE(staysFor(6)) << "longer than a route without cycles lives";
  EXPECT_EQ(standingMessage(client), std::nullopt);
  moveStream(on, "Player", "lab-sink-a");
  {
    Listening listening{on};
    EXPECT_TRUE(becomes(listening, 0.4));
  }
  player.pause();
  EXPECT_TRUE(
      on.graph.waitUntil([&](const lab::GraphView& view) { return stateOf(view, "lab-sink-a") != "running"; },
                         lab::Milliseconds(20'000)))
      << "a silent program keeps no device awake";
}

TEST(AudioRouterOnServer, OutputSwitchedThereAndBackRestoresTheRouteOnce) {
  RoutersOnStack on;
  Player player{on.stack, {.name = "Player", .arguments = {"--channel", "0"}}};
  ASSERT_TRUE(on.plays({&player}));
  Listening listening{on};
  const auto client = on.client();
  ASSERT_EQ(setGain(client, player, 0.4), "");
  ASSERT_TRUE(becomes(listening, 0.4));
  on.graph.setDefaultSink("lab-sink-b");
  on.graph.setDefaultSink("lab-sink-a");
  listening.recorder.waitSeconds(1.0);
  EXPECT_TRUE(becomes(listening, 0.4));
  EXPECT_EQ(listed(client, player)->gain, 0.4);
  EXPECT_EQ(standingMessage(client), std::nullopt);
}

TEST(AudioRouterOnServer, ProgramThatEndsLeavesNothing) {
  RoutersOnStack on;
  auto player = std::make_unique<Player>(on.stack, lab::PlayerSetup{.name = "Player"});
  ASSERT_TRUE(on.plays({player.get()}));
  const auto client = on.client();
  ASSERT_EQ(setGain(client, *player, 0.4), "");
  player->kill();
  EXPECT_TRUE(on.isClean()) << testing::PrintToString(on.leftovers());
}

}  // namespace
}  // namespace monitor::platform::test
