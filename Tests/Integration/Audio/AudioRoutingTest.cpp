// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <cmath>

#include "MonitorAudioEngine/AudioRouteError.h"
#include "Tests/Integration/Audio/RoutedStack.h"
#include "Tools/AudioLab/CounterSignal.h"

namespace monitor::platform::test {
namespace {

constexpr double kGain = 0.4;
// A recorded ratio carries the rounding of two single-precision samples.
constexpr double kTolerance = 1e-6;

class PlayerKinds : public testing::TestWithParam<PlayerKind> {};
INSTANTIATE_TEST_SUITE_P(Players, PlayerKinds, testing::Values(PlayerKind::Native, PlayerKind::Pulse),
                         [](const auto& kind) {
                           return kind.param == PlayerKind::Native ? "Native" : "Pulse";
                         });

// Whether each frame of the stretch is the program's frame times the gain, to the last bit. The first frame
// may be the last one of a ramp, whose factor is the rounded sum of where it came from and how far it went.
bool isExact(const std::vector<float>& samples, const lab::Stretch& stretch, float gain) {
  for (std::size_t frame = stretch.first + 1; frame < stretch.end(); ++frame) {
    if (samples[frame] != lab::counterValue(stretch.phase + frame) * gain) return false;
  }
  return true;
}

const lab::Stretch* lastSteadyBefore(const std::vector<lab::Stretch>& stretches, const lab::Stretch& next) {
  const lab::Stretch* last = nullptr;
  for (const lab::Stretch& stretch : stretches) {
    if (stretch.kind == lab::StretchKind::Steady && stretch.end() <= next.first) last = &stretch;
  }
  return last;
}

TEST_P(PlayerKinds, RouteScalesTheProgramAloneAndGivesItBack) {
  RoutedStack on;
  Player player{on.stack, {.kind = GetParam(), .name = "Player", .arguments = {"--channel", "0"}}};
  Player other{on.stack, {.name = "Other", .arguments = {"--channel", "1"}}};
  ASSERT_TRUE(on.plays({&player, &other}));
  Listening listening{on};
  listening.recorder.waitSeconds(0.2);
  const std::size_t before = listening.frames();
  auto route = on.route({&player}, kGain);
  listening.recorder.waitSeconds(0.5);
  const std::size_t routed = listening.frames();
  route.reset();
  listening.recorder.waitSeconds(0.2);

  const auto samples = listening.recorder.recording().channels.at(0);
  const auto stretches = lab::findStretches(samples);
  const auto* scaled = lab::findSteady(stretches, kGain, kTolerance, before);
  ASSERT_NE(scaled, nullptr);
  EXPECT_TRUE(isExact(samples, *scaled, 0.4F));
  // A player that a busy machine lets run dry is not the route's fault: it parts the stretch in two at one gain.
  const auto whileRouted = lab::measureSteadiness(stretches, scaled->first, routed);
  EXPECT_NEAR(whileRouted.lowest, kGain, kTolerance);
  EXPECT_NEAR(whileRouted.highest, kGain, kTolerance);
  EXPECT_GE(whileRouted.steadyFrames, 20'000U) << "at most a few cycles of half a second are not steady";
  const auto* back = lab::findSteady(stretches, 1.0, kTolerance, routed);
  ASSERT_NE(back, nullptr);
  EXPECT_TRUE(isExact(samples, *back, 1.0F));
  const auto* last = lastSteadyBefore(stretches, *back);
  ASSERT_NE(last, nullptr);
  EXPECT_NEAR(last->gain, kGain, kTolerance);
  EXPECT_EQ(lab::describeJoint(samples, *last, *back).delayedFrames, 0);
  const auto others = lab::measureSteadiness(listening.stretches(1), before, listening.frames());
  EXPECT_EQ(others.lowest, 1.0);
  EXPECT_EQ(others.highest, 1.0);
  EXPECT_TRUE(on.isClean()) << testing::PrintToString(on.leftovers());
}

// The gain at which the program is heard now; -1 while it is not steady.
double heard(const Listening& listening) {
  const std::size_t from = listening.frames();
  listening.recorder.waitSeconds(0.06);
  const auto measured = lab::measureSteadiness(listening.stretches(0, from), 0, 2000);
  return measured.steadyFrames > 1500 ? measured.gain : -1.0;
}

TEST(AudioRouting, SecondViewIsRefusedAProgramThatIsRouted) {
  RoutedStack on;
  Player player{on.stack, {.name = "Player"}};
  ASSERT_TRUE(on.plays({&player}));
  const HardwareView second{on.provider->openView()};
  auto route = on.route({&player}, kGain);
  try {
    (void)on.routeOn(second, {&player}, 0.5);
    FAIL() << "the program was routed twice";
  } catch (const AudioRouteError& error) {
    EXPECT_EQ(error.status(), -16);
  }
  route.reset();
  EXPECT_NO_THROW((void)on.routeOn(second, {&player}, 0.5));
  EXPECT_TRUE(on.isClean());
}

TEST(AudioRouting, StreamThatMayNotBeMovedRefusesTheProgramAndChangesNothing) {
  RoutedStack on;
  Player player{on.stack, {.name = "Player", .arguments = {"--dont-reconnect"}}};
  ASSERT_TRUE(on.plays({&player}));
  EXPECT_THROW((void)on.route({&player}, kGain), AudioRouteError);
  EXPECT_EQ(on.view.hardware->lastFailure().code, -1);
  EXPECT_TRUE(on.isClean());
}

TEST(AudioRouting, ProgramOnAnotherOutputIsRefusedAndLeftAlone) {
  RoutedStack on;
  Player player{on.stack, {.name = "Player", .arguments = {"--target", "lab-sink-b"}}};
  ASSERT_TRUE(on.plays({&player}));
  EXPECT_THROW((void)on.route({&player}, kGain), AudioRouteError);
  EXPECT_EQ(on.view.hardware->lastFailure().code, -6);
  EXPECT_TRUE(on.isClean());
}

TEST_P(PlayerKinds, StreamOpenedWhileRoutedAndOneThatPausedAreScaled) {
  RoutedStack on;
  Player player{on.stack, {.kind = GetParam(), .name = "Player"}};
  ASSERT_TRUE(on.plays({&player}));
  const Listening listening{on};
  const auto route = on.route({&player}, kGain);
  EXPECT_TRUE(eventually([&] { return std::abs(heard(listening) - kGain) < kTolerance; }));
  player.pause();
  ASSERT_TRUE(eventually([&] { return !on.view.running(player.pid()); }));
  player.resume();
  EXPECT_TRUE(eventually([&] { return std::abs(heard(listening) - kGain) < kTolerance; }));
  player.close();
  player.open();
  EXPECT_TRUE(eventually([&] { return std::abs(heard(listening) - kGain) < kTolerance; }));
}

TEST(AudioRouting, NothingOfOursIsShownAsADevice) {
  RoutedStack on;
  Player player{on.stack, {.name = "Player"}};
  ASSERT_TRUE(on.plays({&player}));
  const auto route = on.route({&player}, kGain);
  for (const auto& command : {std::vector<std::string>{"pactl", "list"}, {"wpctl", "status"}}) {
    const auto result = on.stack.run(command);
    EXPECT_EQ(result.status, 0);
    // The program's stream names what it is linked to; devices, sinks and sources come before the streams.
    const std::string devices = result.output.substr(0, result.output.find("Streams:"));
    EXPECT_EQ(devices.find("vesk-monitor."), std::string::npos) << result.output;
  }
}

// Streams of programs that are linked to the output directly.
std::size_t directStreams(const RoutedStack& on) {
  const lab::GraphView graph = on.graph.view();
  const auto* sink = graph.nodeNamed("lab-sink-a");
  std::size_t count = 0;
  for (const auto* stream : graph.nodesOfClass("Stream/Output/Audio")) {
    count += graph.linkCount(stream->id, sink->id) > 0 ? 1U : 0U;
  }
  return count;
}

TEST(AudioRouting, SixtyFourStreamsOfOneProgramAreTakenAndGivenBack) {
  RoutedStack on;
  Player player{on.stack, {.name = "Player", .streams = 64}};
  ASSERT_TRUE(on.plays({&player}));
  ASSERT_TRUE(eventually([&] { return directStreams(on) == 64; }));
  auto route = on.route({&player}, kGain);
  EXPECT_TRUE(eventually([&] { return directStreams(on) == 0; }, milliseconds{30000}));
  route.reset();
  EXPECT_TRUE(eventually([&] { return directStreams(on) == 64; }, milliseconds{30000}));
  EXPECT_TRUE(on.isClean());
}

TEST(AudioRouting, DeathOfTheServerEndsTheRouteAtOnceAndItCanBeTornDown) {
  RoutedStack on;
  Player player{on.stack, {.name = "Player"}};
  ASSERT_TRUE(on.plays({&player}));
  auto route = on.route({&player}, kGain);
  on.stack.kill(lab::Daemon::PipeWire);
  std::uint32_t size = 0;
  EXPECT_TRUE(eventually([&] {
    return on.view.hardware->propertyDataSize(audio::kSystemObject, audio::kProcessObjectList, size) == -32;
  }));
  const auto begin = std::chrono::steady_clock::now();
  route.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds{100});
}

}  // namespace
}  // namespace monitor::platform::test
