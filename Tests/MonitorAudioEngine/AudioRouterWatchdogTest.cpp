// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "Tests/MonitorAudioEngine/RouterWorld.h"

namespace monitor {
namespace {

using namespace testing_support;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kTimedOut = "Audio routing stopped responding. Normal playback has been restored.";

class AudioRouterWatchdogTest : public testing::Test {
 protected:
  // Asks for nothing, so that no heartbeat comes of it.
  bool isRouted(std::int32_t pid) { return world_.routeOf(pid) != 0; }

  RouterWorld world_;  // created at second 0; its timer fires at every whole second
};

TEST_F(AudioRouterWatchdogTest, AClientThatIsSilentForEightSecondsKeepsItsRoutesAndNoLonger) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.playFor(8.0);
  EXPECT_TRUE(isRouted(812)) << "exactly 8 s have passed";
  world_.playFor(1.0);
  EXPECT_FALSE(isRouted(812));
  EXPECT_TRUE(world_.hardware.isClean());
  EXPECT_EQ(world_.message(), std::nullopt) << "the client that is gone needs no message";
}

TEST_F(AudioRouterWatchdogTest, TheFirstTickPastEightSecondsEndsTheRoutes) {
  world_.time.advance(0.5);
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.playFor(8.25);
  EXPECT_TRUE(isRouted(812)) << "last looked at after 7.5 s";
  world_.playFor(0.25);
  EXPECT_FALSE(isRouted(812)) << "looked at after 8.5 s";
}

TEST_F(AudioRouterWatchdogTest, AListAndAGainAreHeartbeatsAndAStopIsNot) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.playFor(7.0);
  (void)world_.list();
  world_.playFor(8.0);
  EXPECT_TRUE(isRouted(812));
  EXPECT_EQ(world_.setGain(2.0, 812), AudioRouteError::changedProcess());
  world_.playFor(8.0);
  EXPECT_TRUE(isRouted(812)) << "a refused gain shows that the client is there";
  (void)world_.lastCause();
  world_.playFor(1.0);
  EXPECT_FALSE(isRouted(812)) << "asking for the cause does not";
}

TEST_F(AudioRouterWatchdogTest, AClientThatAsksEveryEightSecondsKeepsItsRoutesForever) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  for (int round = 0; round < 50; ++round) {
    world_.playFor(8.0);
    EXPECT_EQ(world_.message(), std::nullopt);
  }
  EXPECT_TRUE(isRouted(812));
}

TEST_F(AudioRouterWatchdogTest, APlayingRouteThatDoesNotRenderIsTornDownAfterThreeSeconds) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.time.advance(3.0 - kMoment);
  EXPECT_TRUE(isRouted(812));
  world_.time.advance(kMoment);
  EXPECT_FALSE(isRouted(812)) << "less than 3 s keep it, 3 s do not";
  EXPECT_TRUE(world_.hardware.isClean());
  EXPECT_EQ(world_.message(), kTimedOut);
  EXPECT_EQ(world_.lastCause(),
            (AudioFailure{0, "process:812:812000: the program plays and nothing was rendered for 3 s"}));
}

TEST_F(AudioRouterWatchdogTest, ThreeSecondsCountFromTheTickThatLastSawARender) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.time.advance(2.5);
  world_.hardware.runCycles();
  world_.time.advance(3.0);
  EXPECT_TRUE(isRouted(812)) << "seen at second 3, now 5.5";
  world_.time.advance(0.5);
  EXPECT_FALSE(isRouted(812)) << "seen at second 3, now 6";
}

TEST_F(AudioRouterWatchdogTest, OneRenderASecondIsEnough) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  for (int second = 0; second < 60; ++second) {
    world_.hardware.runCycles();
    (void)world_.list();
    world_.time.advance(1.0);
  }
  EXPECT_TRUE(isRouted(812));
}

TEST_F(AudioRouterWatchdogTest, ASilentProgramIsNeverTornDownForLackOfRenders) {
  world_.play(812, {}, false);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.listenFor(60.0);
  EXPECT_TRUE(isRouted(812));
  EXPECT_EQ(world_.message(), std::nullopt);
}

TEST_F(AudioRouterWatchdogTest, APauseKeepsRouteAndGain) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.listenFor(3.0);
  const AudioObjectID route = world_.routeOf(812);
  world_.setRunning(812, false);
  world_.listenFor(10.0);
  world_.setRunning(812, true);
  const fakes::StereoBlock ones{{1.0F}, {1.0F}};
  EXPECT_EQ(world_.hardware.runCycle(route, ones), (fakes::StereoBlock{{0.4F}, {0.4F}}))
      << "the first sample already";
  world_.listenFor(10.0);
  EXPECT_EQ(world_.routeOf(812), route);
  EXPECT_EQ(world_.message(), std::nullopt);
}

TEST_F(AudioRouterWatchdogTest, AfterAPauseTheThreeSecondsStartAnew) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.setRunning(812, false);
  world_.time.advance(6.0);
  world_.setRunning(812, true);
  (void)world_.list();
  world_.time.advance(3.0 - kMoment);
  EXPECT_TRUE(isRouted(812));
  world_.time.advance(kMoment);
  EXPECT_FALSE(isRouted(812));
}

TEST_F(AudioRouterWatchdogTest, WhoPlaysIsNotRememberedFromBeforeTheRoute) {
  world_.play(812);
  world_.play(813);
  EXPECT_EQ(world_.setGain(0.4, 813), std::nullopt);
  world_.setRunning(813, true);  // both are seen playing
  world_.stop();
  world_.setRunning(812, false);  // nobody looks while there is no route
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.listenFor(10.0);
  EXPECT_TRUE(isRouted(812)) << "it is silent now";
}

TEST_F(AudioRouterWatchdogTest, ARouteThatFailedIsTornDownAtTheNextTick) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  MonitorAudioBufferList none{};
  EXPECT_TRUE(world_.hardware.runCycle(world_.routeOf(812), &none, &none));
  world_.time.advance(1.0 - kMoment);
  EXPECT_TRUE(isRouted(812));
  world_.time.advance(kMoment);
  EXPECT_FALSE(isRouted(812));
  EXPECT_EQ(world_.message(), kTimedOut);
  EXPECT_THAT(world_.lastCause().text, HasSubstr("buffers that do not fit"));
}

TEST_F(AudioRouterWatchdogTest, ARouteWhoseProcessEndedIsTornDownAtTheNextTick) {
  world_.play(812, "org.example.suite");
  world_.play(813, "org.example.suite");
  EXPECT_EQ(world_.setGain(0.4, {keyOf(812), keyOf(813)}), std::nullopt);
  world_.processes.end(813);  // the audio system has not noticed
  world_.playFor(1.0);
  EXPECT_FALSE(isRouted(812));
  EXPECT_EQ(world_.message(), kTimedOut);
  EXPECT_EQ(world_.lastCause(), (AudioFailure{0, "org.example.suite: process 813:813000 ended"}));
}

TEST_F(AudioRouterWatchdogTest, ARouteWhosePidWasReusedIsTornDown) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.processes.add({812, 5}, "/usr/bin/other", kUser);
  world_.playFor(1.0);
  EXPECT_FALSE(isRouted(812));
  EXPECT_EQ(world_.message(), kTimedOut);
}

TEST_F(AudioRouterWatchdogTest, OnlyTheRouteInTroubleIsTornDown) {
  world_.play(812);
  world_.play(813);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  EXPECT_EQ(world_.setGain(0.6, 813), std::nullopt);
  world_.processes.end(812);
  world_.playFor(1.0);
  EXPECT_FALSE(isRouted(812));
  EXPECT_EQ(world_.level(813), 0.6F);
  world_.expectWholeRoutes(1);
}

TEST_F(AudioRouterWatchdogTest, TheMessageStands) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.time.advance(3.0);
  EXPECT_EQ(world_.message(), kTimedOut);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  EXPECT_EQ(world_.message(), kTimedOut);
  world_.stop();
  EXPECT_EQ(world_.message(), kTimedOut);
}

TEST_F(AudioRouterWatchdogTest, AListenerThatWasRefusedIsAskedForAgain) {
  world_.hardware.loseServer();
  const auto late = world_.makeRouter();
  world_.time.run();
  EXPECT_EQ(world_.hardware.listeners(), 2U) << "those of the first router";
  world_.time.advance(1.0);
  EXPECT_EQ(world_.hardware.listeners(), 2U);
  world_.hardware.returnServer();
  world_.time.advance(1.0);
  EXPECT_EQ(world_.hardware.listeners(audio::kDefaultOutputDevice), 2U);
  EXPECT_EQ(world_.hardware.listeners(audio::kProcessObjectList), 2U);
  world_.time.advance(5.0);
  EXPECT_EQ(world_.hardware.listeners(), 4U) << "once each";
}

// Routes end by monotonic time alone, so that a step of the wall clock ends none: the engine and the service
// never ask for the time of day.
TEST(AudioRouterWallClock, IsNeverAsked) {
  const std::filesystem::path root = std::filesystem::path(VESK_FIXTURES) / ".." / "..";
  std::size_t files = 0;
  for (const char* folder : {"MonitorAudioEngine", "MonitorAudioService"}) {
    for (const auto& entry : std::filesystem::directory_iterator(root / folder)) {
      if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h") continue;
      if (entry.path().filename() == "main.cpp") continue;
      std::ifstream stream(entry.path());
      const std::string text{std::istreambuf_iterator<char>(stream), {}};
      for (const char* word : {"WallClock", "Date.h", "system_clock", "<ctime>", "gettimeofday"}) {
        EXPECT_THAT(text, Not(HasSubstr(word))) << entry.path();
      }
      ++files;
    }
  }
  EXPECT_GT(files, 10U);
}

}  // namespace
}  // namespace monitor
