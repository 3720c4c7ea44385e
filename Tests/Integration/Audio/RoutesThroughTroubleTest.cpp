// SPDX-License-Identifier: MIT
// Routes on a real audio server through what real programs and servers do: several streams, long pauses,
// daemons that die and come back.
#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "MonitorAudioEngine/AudioRouteError.h"
#include "Tests/Integration/Audio/RoutersOnStack.h"
#include "Tools/AudioLab/CounterSignal.h"

namespace monitor::platform::test {
namespace {

constexpr double kGain = 0.4;
constexpr double kTolerance = 1e-6;
constexpr milliseconds kPatience{20'000};

lab::StackOptions withoutPulse() {
  return {.pulse = false};
}

// Several programs' saws on one channel. Their sum rises by the sum of their gains, and falls by the gain of
// each saw that begins anew.
struct Saws {
  double sum = 0.0;           // of the gains
  std::vector<double> falls;  // within one period of the signal: every saw's gain, those of one phase as one
};

Saws measureSaws(const std::vector<float>& samples) {
  constexpr double kStep = static_cast<double>(lab::kCounterStep);
  std::vector<double> steps;
  for (std::size_t frame = 1; frame < samples.size() && frame <= lab::kCounterPeriod; ++frame) {
    steps.push_back(static_cast<double>(samples[frame]) - static_cast<double>(samples[frame - 1]));
  }
  std::vector<double> rises;
  std::copy_if(steps.begin(), steps.end(), std::back_inserter(rises), [](double step) { return step > 0.0; });
  if (rises.empty()) return {};
  const double rise = std::accumulate(rises.begin(), rises.end(), 0.0) / static_cast<double>(rises.size());
  Saws saws{rise / kStep, {}};
  for (const double step : steps) {
    if (step < 0.0) saws.falls.push_back((rise - step) / (kStep * lab::kCounterPeriod));
  }
  return saws;
}

// Whether that many saws come to be heard, each at the gain.
bool becomesSaws(const Listening& listening, double count, double gain) {
  Saws last;
  const bool heard = eventually(
      [&] {
        const std::size_t from = listening.frames();
        listening.recorder.waitFrames(lab::kCounterPeriod + 512);
        last = measureSaws(listening.recorder.recording(from).channels.at(0));
        const double fallen = std::accumulate(last.falls.begin(), last.falls.end(), 0.0);
        const bool each = std::all_of(last.falls.begin(), last.falls.end(), [&](double fall) {
          return std::abs(fall / gain - std::round(fall / gain)) < 1e-3;
        });
        return each && std::abs(last.sum - count * gain) < 1e-3 && std::abs(fallen - count * gain) < 1e-3;
      },
      kPatience);
  if (!heard) ADD_FAILURE() << "sum " << last.sum << ", falls " << testing::PrintToString(last.falls);
  return heard;
}

TEST(RoutesThroughTrouble, ThreeStreamsOfOneProcessPlayAtOneGain) {
  RoutersOnStack on(withoutPulse());
  Player player{on.stack, {.name = "Player", .arguments = {"--channel", "0"}}};
  const Listening listening{on};
  for (int more = 0; more < 2; ++more) {
    listening.recorder.waitFrames(1000);  // another phase of the signal for each
    player.open();
  }
  ASSERT_TRUE(on.plays({&player}));
  ASSERT_TRUE(becomesSaws(listening, 3.0, 1.0));
  const auto client = on.client();
  ASSERT_EQ(setGain(client, player, kGain), "");
  EXPECT_TRUE(becomesSaws(listening, 3.0, kGain));
  ASSERT_EQ(setGain(client, player, 0.5), "");
  EXPECT_TRUE(becomesSaws(listening, 3.0, 0.5));
  player.close();
  EXPECT_TRUE(becomesSaws(listening, 2.0, 0.5));
  ASSERT_EQ(setGain(client, player, 1.0), "");
  EXPECT_TRUE(becomesSaws(listening, 2.0, 1.0));
  EXPECT_TRUE(on.isClean()) << testing::PrintToString(on.leftovers());
}

// The nodes of the service's routes, which have a number of their own each.
std::vector<std::string> routeNodes(const RoutedStack& on) {
  auto names = on.leftovers();
  std::erase_if(names, [](const std::string& name) { return !name.starts_with("vesk-monitor.route."); });
  return names;
}

TEST(RoutesThroughTrouble, ProgramPausedForLongPlaysOnInTheSameRouteFromItsFirstSample) {
  RoutersOnStack on(withoutPulse());
  Player player{on.stack, {.name = "Player", .arguments = {"--channel", "0"}}};
  ASSERT_TRUE(on.plays({&player}));
  const Listening listening{on};
  const auto client = on.client();
  ASSERT_EQ(setGain(client, player, kGain), "");
  ASSERT_TRUE(becomes(listening, kGain));
  const auto route = routeNodes(on);
  ASSERT_EQ(route.size(), 1U);

  player.pause();
  ASSERT_TRUE(eventually([&] { return !on.view.running(player.pid()); }, kPatience));
  // Longer than a program that plays may go without rendering.
  const int seconds = std::getenv("VESK_LONG") != nullptr ? 12 : 5;
  for (int second = 0; second < seconds; ++second) {
    listening.recorder.waitSeconds(1.0);
    EXPECT_EQ(ask(client, player).gain(), kGain);
  }
  const std::size_t resumed = listening.frames();
  player.resume();
  ASSERT_TRUE(becomes(listening, kGain));
  for (const auto& stretch : listening.stretches(0, resumed)) {
    if (stretch.kind != lab::StretchKind::Steady) continue;
    EXPECT_NEAR(stretch.gain, kGain, kTolerance);
  }
  const Told told = ask(client, player);
  EXPECT_EQ(told.gain(), kGain);
  EXPECT_FALSE(told.message) << *told.message;
  EXPECT_EQ(routeNodes(on), route);
}

// Whether what the client is told becomes what is heard: the gain that was set, or normal playback and why.
bool tellsTheTruth(const std::shared_ptr<AudioRouter>& client, const Player& player,
                   const Listening& listening, milliseconds deadline) {
  Told told;
  double heard = -1.0;
  const bool true_ = eventually(
      [&] {
        told = ask(client, player);
        heard = heardNow(listening);
        const bool explained = told.gain() == kGain || (told.gain() == 1.0 && told.message);
        return explained && std::abs(heard - told.gain()) < kTolerance;
      },
      deadline);
  if (!true_) {
    ADD_FAILURE() << "told " << told.gain() << " \"" << told.message.value_or("") << told.error
                  << "\", heard " << heard;
  }
  return true_;
}

TEST(RoutesThroughTrouble, AudioServerThatDiesAndReturnsIsToldTruly) {
  RoutersOnStack on(withoutPulse());
  Player player{on.stack, {.name = "Player", .arguments = {"--channel", "0", "--reconnect"}}};
  ASSERT_TRUE(on.plays({&player}));
  const auto client = on.client();
  {
    const Listening listening{on};
    ASSERT_EQ(setGain(client, player, kGain), "");
    ASSERT_TRUE(becomes(listening, kGain));
  }
  on.stack.kill(lab::Daemon::PipeWire);
  // Nothing is listed as if it still played.
  const std::string gone = AudioRouteError::system(-EPIPE).what();
  EXPECT_TRUE(eventually([&] { return ask(client, player).error == gone; }, milliseconds{3000}));

  // In the long version past the watchdog's patience, so that the route is given up meanwhile.
  for (int second = 0; std::getenv("VESK_LONG") != nullptr && second < 5; ++second) {
    std::this_thread::sleep_for(milliseconds{1000});
    EXPECT_EQ(ask(client, player).error, gone);
  }

  on.stack.start(lab::Daemon::PipeWire);
  on.stack.restart(lab::Daemon::SessionManager);
  ASSERT_TRUE(on.plays({&player}));
  const Listening listening{on};
  EXPECT_TRUE(tellsTheTruth(client, player, listening, milliseconds{6000}));
  // Whatever became of the old route, the program can be set as before.
  EXPECT_EQ(setGain(client, player, 0.25), "");
  EXPECT_TRUE(becomes(listening, 0.25));
}

TEST(RoutesThroughTrouble, SessionManagerThatDiesAndReturnsIsToldTruly) {
  lab::StackOptions options = withoutPulse();
  options.sinks.clear();
  RoutersOnStack on(options);
  // Outputs go with their session manager, as sound cards do; and a restarted one does not take up for
  // certain what was there before it, so that both the output and the program's stream are made anew.
  const lab::SinkOptions sink{};
  on.graph.addSink(sink);
  ASSERT_TRUE(on.graph.waitUntil([](const auto& now) { return now.defaultSink() == "lab-sink-a"; }));
  Player player{on.stack, {.name = "Player", .arguments = {"--channel", "0"}}};
  ASSERT_TRUE(on.plays({&player}));
  const auto client = on.client();
  {
    const Listening listening{on};
    ASSERT_EQ(setGain(client, player, kGain), "");
    ASSERT_TRUE(becomes(listening, kGain));
    on.stack.kill(lab::Daemon::SessionManager);
    listening.recorder.waitSeconds(1.0);
    // Without a session manager nobody links the program: it is heard through its route or not at all.
    for (const auto& stretch : listening.stretches(0, listening.frames() - 4'800)) {
      if (stretch.kind != lab::StretchKind::Steady) continue;
      EXPECT_NEAR(stretch.gain, kGain, kTolerance);
    }
  }
  on.stack.start(lab::Daemon::SessionManager);
  on.graph.removeSink(sink.name);
  on.graph.addSink(sink);
  ASSERT_TRUE(on.graph.waitUntil([](const auto& now) { return now.defaultSink() == "lab-sink-a"; }));
  player.close();
  player.open();
  const Listening listening{on};
  EXPECT_TRUE(tellsTheTruth(client, player, listening, kPatience));
  EXPECT_EQ(setGain(client, player, 0.25), "");
  EXPECT_TRUE(becomes(listening, 0.25));
  EXPECT_EQ(setGain(client, player, 1.0), "");
  EXPECT_TRUE(becomes(listening, 1.0));
  EXPECT_TRUE(on.isClean()) << testing::PrintToString(on.leftovers());
}

}  // namespace
}  // namespace monitor::platform::test
