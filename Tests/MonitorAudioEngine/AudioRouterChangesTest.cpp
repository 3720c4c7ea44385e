// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <algorithm>

#include "Tests/MonitorAudioEngine/RouterWorld.h"

namespace monitor {
namespace {

using namespace testing_support;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kTornDown = "stopDevice destroyIOProc destroyAggregateDevice destroyProcessTap";

class AudioRouterChangesTest : public testing::Test {
 protected:
  // The default output becomes a new device of that format.
  void switchOutput(std::uint32_t channels = 2) {
    const AudioObjectID device = world_.hardware.addDevice("output " + std::to_string(++outputs_),
                                                           fakes::floatFormat(channels, 44'100.0));
    world_.hardware.setDefaultOutput(device);
    world_.time.run();
  }
  std::string routeCalls() {
    std::string text;
    for (const std::string& call : world_.hardware.routeCalls()) text += (text.empty() ? "" : " ") + call;
    return text;
  }
  std::size_t builds() {
    const auto calls = world_.hardware.routeCalls();
    return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), "createProcessTap"));
  }

  RouterWorld world_;
  int outputs_ = 0;
};

// The default output changes.

TEST_F(AudioRouterChangesTest, RoutesEndAtOnceAndReturnAfterFourTenthsOnTheNewOutput) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.hardware.forgetCalls();
  switchOutput();
  EXPECT_EQ(routeCalls(), kTornDown);
  EXPECT_EQ(world_.level(812), 1.0F) << "normal playback meanwhile";
  world_.time.advance(0.4 - kMoment);
  EXPECT_EQ(world_.level(812), 1.0F);
  world_.time.advance(kMoment);
  EXPECT_EQ(world_.level(812), 0.4F);
  EXPECT_EQ(world_.hardware.aggregates().begin()->second.description.master, "output 1");
  EXPECT_EQ(world_.message(), std::nullopt);
}

TEST_F(AudioRouterChangesTest, EveryRouteReturnsWithItsGain) {
  for (std::int32_t pid = 812; pid < 822; ++pid) {
    world_.play(pid);
    EXPECT_EQ(world_.setGain((pid - 812) / 10.0, pid), std::nullopt);
  }
  switchOutput();
  EXPECT_TRUE(world_.hardware.isClean());
  world_.time.advance(0.4);
  world_.expectWholeRoutes(10);
  for (std::int32_t pid = 812; pid < 822; ++pid) {
    EXPECT_EQ(world_.level(pid), static_cast<float>((pid - 812) / 10.0));
  }
}

TEST_F(AudioRouterChangesTest, TwoChangesWithinFourTenthsRestoreOnceAfterTheSecond) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.hardware.forgetCalls();
  switchOutput();
  world_.time.advance(0.3);
  switchOutput();
  world_.time.advance(0.4 - kMoment);
  EXPECT_EQ(builds(), 0U) << "the first restore is obsolete";
  world_.time.advance(kMoment);
  EXPECT_EQ(builds(), 1U);
  EXPECT_EQ(world_.hardware.aggregates().begin()->second.description.master, "output 2");
  world_.time.advance(5.0);
  EXPECT_EQ(builds(), 1U);
}

TEST_F(AudioRouterChangesTest, SwitchedBackWithinFourTenthsTheRouteReturnsWhereItWas) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  const AudioObjectID speakers = world_.hardware.defaultOutput();
  switchOutput();
  world_.time.advance(0.2);
  world_.hardware.setDefaultOutput(speakers);
  world_.time.advance(0.4);
  EXPECT_EQ(world_.level(812), 0.4F);
  EXPECT_EQ(world_.hardware.aggregates().begin()->second.description.master, "speakers");
}

TEST_F(AudioRouterChangesTest, AStopWithinFourTenthsIsFinal) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  switchOutput();
  world_.stop();
  world_.time.advance(1.0);
  EXPECT_TRUE(world_.hardware.isClean());
}

TEST_F(AudioRouterChangesTest, ANewerChoiceWinsOverThePendingRestore) {
  world_.play(812);
  world_.play(813);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  EXPECT_EQ(world_.setGain(0.6, 813), std::nullopt);
  switchOutput();
  EXPECT_EQ(world_.setGain(1.0, 812), std::nullopt);
  EXPECT_EQ(world_.setGain(0.2, 813), std::nullopt);
  world_.time.advance(1.0);
  EXPECT_EQ(world_.level(812), 1.0F);
  EXPECT_EQ(world_.level(813), 0.2F);
  world_.expectWholeRoutes(1);
}

TEST_F(AudioRouterChangesTest, ARefusedChoiceLeavesThePendingRestore) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  switchOutput();
  EXPECT_EQ(world_.setGain(2.0, 812), AudioRouteError::changedProcess());
  EXPECT_EQ(world_.setGain(1.0, {{812, 1}}), AudioRouteError::changedProcess());
  world_.time.advance(0.4);
  EXPECT_EQ(world_.level(812), 0.4F);
}

TEST_F(AudioRouterChangesTest, AnOutputThatCannotBeUsedLeavesAMessage) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  switchOutput(1);
  EXPECT_EQ(world_.message(), std::nullopt);
  world_.time.advance(0.4);
  EXPECT_EQ(world_.message(),
            "Output changed. This output format is not supported for app volume. Use a stereo output. Normal "
            "playback is unchanged.");
  EXPECT_THAT(world_.lastCause().text, HasSubstr("1 channel"));
  EXPECT_TRUE(world_.hardware.isClean());
}

TEST_F(AudioRouterChangesTest, AProgramThatChangedMeanwhileIsNotRestored) {
  world_.play(812, "org.example.suite");
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  switchOutput();
  world_.play(813, "org.example.suite");
  world_.time.advance(0.4);
  EXPECT_EQ(world_.message(), "Output changed. This audio app changed or closed. Refresh the app list.");
  EXPECT_TRUE(world_.hardware.isClean());
}

TEST_F(AudioRouterChangesTest, OneFailedRestoreDoesNotHinderTheOthersAndTheLastMessageStands) {
  world_.play(812);
  world_.play(813);
  world_.play(814);
  for (const std::int32_t pid : {812, 813, 814}) EXPECT_EQ(world_.setGain(0.5, pid), std::nullopt);
  switchOutput();
  world_.hardware.process(world_.hardware.processOf(812)).tapStatus = -1;
  world_.hardware.process(world_.hardware.processOf(814)).tapStatus = -3;
  world_.time.advance(0.4);
  world_.expectWholeRoutes(1);
  EXPECT_EQ(world_.level(813), 0.5F);
  EXPECT_THAT(*world_.message(), testing::AnyOf(HasSubstr("(macOS -1)"), HasSubstr("(macOS -3)")));
  EXPECT_THAT(*world_.message(), testing::StartsWith("Output changed. Audio access or routing failed"));
}

TEST_F(AudioRouterChangesTest, ARestoreNeedsAClientHeardOfInTheLastEightSeconds) {
  for (const bool late : {false, true}) {
    RouterWorld world;
    world.time.advance(0.7);
    world.play(812);
    EXPECT_EQ(world.setGain(0.4, 812), std::nullopt);
    // The tick before the restore sees at most 7.3 s of silence; only the restore's own bound decides.
    world.playFor(7.25);
    world.time.advance(0.35 - (late ? 0.0 : kMoment));
    world.hardware.setDefaultOutput(world.hardware.addDevice("new", fakes::floatFormat(2, 48'000.0)));
    world.time.run();
    world.time.advance(0.4 + kMoment / 10);
    EXPECT_EQ(world.routeOf(812) != 0, !late) << "8 s less a moment, and 8 s";
  }
}

TEST_F(AudioRouterChangesTest, AChangeWithoutRoutesIsHarmless) {
  world_.play(812);
  world_.hardware.forgetCalls();
  switchOutput();
  world_.time.advance(0.5);
  EXPECT_THAT(world_.hardware.calls(), IsEmpty());
}

// The audio processes change.

TEST_F(AudioRouterChangesTest, WithoutRoutesAProcessChangeAsksNothing) {
  world_.hardware.forgetCalls();
  world_.play(812);
  EXPECT_THAT(world_.hardware.calls(), IsEmpty());
}

TEST_F(AudioRouterChangesTest, AChangeElsewhereLeavesTheRoute) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  const AudioObjectID route = world_.routeOf(812);
  world_.hardware.forgetCalls();
  world_.play(813);
  world_.leave(813);
  EXPECT_EQ(routeCalls(), "");
  EXPECT_EQ(world_.routeOf(812), route);
}

TEST_F(AudioRouterChangesTest, AProgramThatLeavesTakesItsRouteAlong) {
  world_.play(812);
  world_.play(813);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  EXPECT_EQ(world_.setGain(0.6, 813), std::nullopt);
  world_.leave(812);
  world_.expectWholeRoutes(1);
  EXPECT_EQ(world_.level(813), 0.6F);
  EXPECT_EQ(world_.message(), std::nullopt) << "that is no failure";
}

TEST_F(AudioRouterChangesTest, ANewProcessOfARoutedProgramJoinsItsRoute) {
  world_.play(812, "org.example.suite");
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.hardware.forgetCalls();
  world_.play(813, "org.example.suite");
  EXPECT_EQ(routeCalls(),
            std::string(kTornDown) + " createProcessTap createAggregateDevice createIOProc startDevice");
  EXPECT_EQ(world_.level(812), 0.4F);
  EXPECT_EQ(world_.level(813), 0.4F);
  world_.expectWholeRoutes(1);
}

TEST_F(AudioRouterChangesTest, ALeavingProcessOfARoutedProgramShrinksItsRoute) {
  world_.play(812, "org.example.suite");
  world_.play(813, "org.example.suite");
  EXPECT_EQ(world_.setGain(0.4, {keyOf(812), keyOf(813)}), std::nullopt);
  world_.leave(812);
  EXPECT_EQ(world_.level(813), 0.4F);
  world_.expectWholeRoutes(1);
  EXPECT_EQ(world_.list().applications.front().processes, std::vector{keyOf(813)});
}

TEST_F(AudioRouterChangesTest, ARebuildThatFailsLeavesNormalPlaybackAndAMessage) {
  world_.play(812, "org.example.suite");
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.hardware.failMatching("startDevice", -110);
  world_.play(813, "org.example.suite");
  EXPECT_TRUE(world_.hardware.isClean());
  EXPECT_EQ(world_.message(),
            "Audio processes changed. Audio access or routing failed (macOS -110). Normal playback has been "
            "restored. "
            "Check System Settings → Privacy & Security → Screen & System Audio Recording.");
  EXPECT_EQ(world_.lastCause().code, -110);
}

TEST_F(AudioRouterChangesTest, AProgramThatGrewTooLargeLosesItsRouteWithAMessage) {
  std::vector<ProcessKey> keys;
  for (std::int32_t pid = 1000; pid < 1128; ++pid) {
    world_.play(pid, "org.example.many");
    keys.push_back(keyOf(pid));
  }
  EXPECT_EQ(world_.setGain(0.4, keys), std::nullopt);
  world_.play(1128, "org.example.many");
  EXPECT_TRUE(world_.hardware.isClean());
  EXPECT_EQ(world_.message(),
            "Audio processes changed. This audio app changed or closed. Refresh the app list.");
}

TEST_F(AudioRouterChangesTest, AListThatCannotBeReadStopsAllWithItsText) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  for (const std::size_t call : {1U, 2U}) {
    EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
    world_.hardware.failCall(call, -5);
    world_.hardware.notify(audio::kProcessObjectList);
    world_.time.run();
    EXPECT_TRUE(world_.hardware.isClean());
    EXPECT_EQ(world_.message(),
              "Audio access or routing failed (macOS -5). Normal playback has been restored. Check System "
              "Settings → "
              "Privacy & Security → Screen & System Audio Recording.");
    EXPECT_EQ(world_.lastCause().code, -5);
  }
}

TEST_F(AudioRouterChangesTest, AListThatCannotBeReadAlsoEndsAPendingRestore) {
  world_.play(812);
  world_.play(813);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  switchOutput();
  EXPECT_EQ(world_.setGain(0.4, 813), std::nullopt);
  world_.hardware.failCall(1, -5);
  world_.hardware.notify(audio::kProcessObjectList);
  world_.time.advance(1.0);
  EXPECT_TRUE(world_.hardware.isClean());
}

TEST_F(AudioRouterChangesTest, AProcessThatMovedBetweenRoutedProgramsIsRebuiltInBoth) {
  const AudioObjectID mover = world_.play(812, "org.example.z");
  world_.play(813, "org.example.z");
  world_.play(900, "org.example.a");
  EXPECT_EQ(world_.setGain(0.25, {keyOf(812), keyOf(813)}), std::nullopt);
  EXPECT_EQ(world_.setGain(0.5, 900), std::nullopt);
  world_.hardware.process(mover).bundleID = "org.example.a";
  world_.hardware.notify(audio::kProcessObjectList);
  world_.time.run();
  EXPECT_EQ(world_.message(), std::nullopt);
  EXPECT_EQ(world_.level(812), 0.5F);
  EXPECT_EQ(world_.level(900), 0.5F);
  EXPECT_EQ(world_.level(813), 0.25F);
  world_.expectWholeRoutes(2);
}

TEST_F(AudioRouterChangesTest, AnAudioServerThatReturnsWithNewIdsGetsEveryRouteBack) {
  world_.play(812);
  world_.play(813);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  EXPECT_EQ(world_.setGain(0.6, 813), std::nullopt);
  world_.hardware.loseServer();
  world_.time.advance(0.5);
  world_.hardware.returnServer();
  world_.time.run();
  world_.time.advance(0.4);
  EXPECT_EQ(world_.level(812), 0.4F);
  EXPECT_EQ(world_.level(813), 0.6F);
  world_.expectWholeRoutes(2);
  EXPECT_EQ(world_.message(), std::nullopt);
}

TEST_F(AudioRouterChangesTest, AnAudioServerThatReturnsWithoutTheProgramLeavesAMessage) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.hardware.notifies = false;
  world_.hardware.loseServer();
  world_.hardware.removeProcess(world_.hardware.processOf(812));
  world_.hardware.returnServer();
  world_.hardware.notify(audio::kDefaultOutputDevice);
  world_.hardware.notify(audio::kProcessObjectList);
  world_.time.advance(0.4);
  EXPECT_TRUE(world_.hardware.isClean());
  EXPECT_EQ(world_.message(), "Output changed. This audio app changed or closed. Refresh the app list.");
}

TEST_F(AudioRouterChangesTest, WhileTheAudioServerIsGoneTheListSaysSoAndTheRoutesEnd) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.hardware.loseServer();
  std::optional<AudioRouteError> caught;
  world_.onQueue([&] {
    try {
      (void)world_.router->applications();
    } catch (const AudioRouteError& error) {
      caught = error;
    }
  });
  EXPECT_EQ(caught, AudioRouteError::system(-32));
  world_.time.advance(3.0);
  world_.hardware.notifies = false;
  world_.hardware.returnServer();
  EXPECT_EQ(world_.message(), "Audio routing stopped responding. Normal playback has been restored.");
  EXPECT_EQ(world_.list().applications.front().gain, 1.0);
}

}  // namespace
}  // namespace monitor
