// SPDX-License-Identifier: MIT
// Where a denied permission is silence and not an error: what the router makes of a service that hears only
// silence.
#include <gmock/gmock.h>

#include <string>

#include "Tests/MonitorAudioEngine/RouterWorld.h"

namespace monitor {
namespace {

using namespace testing_support;

constexpr const char* kOnlySilence =
    "App Volume hears only silence. If this program should be audible, check System Settings → Privacy & "
    "Security → Screen & System Audio Recording.";

class AudioRouterSilenceTest : public testing::Test {
 protected:
  bool isRouted(std::int32_t pid) { return world_.routeOf(pid) != 0; }
  // A program that plays zeros, routed.
  void routeSilentProgram(std::int32_t pid) {
    world_.hardware.process(world_.play(pid)).silent = true;
    EXPECT_EQ(world_.setGain(0.4, pid), std::nullopt);
  }
  // Whole seconds with cycles and a client that is there, up to just before the last one's tick.
  void hearAlmost(double seconds) {
    world_.listenFor(seconds - 1.0);
    world_.playFor(0.75);
    world_.time.advance(0.25 - kMoment);
  }

  SilenceWatch silence_;
  RouterWorld world_{&silence_};  // created at second 0; its timer fires at every whole second
};

TEST_F(AudioRouterSilenceTest, TenSecondsOfNothingButSilenceEndTheRouteAndNoLess) {
  world_.hardware.permissionDenied = true;
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  hearAlmost(10.0);
  EXPECT_TRUE(isRouted(812));
  EXPECT_EQ(world_.message(), std::nullopt);
  world_.time.advance(kMoment);
  EXPECT_FALSE(isRouted(812));
  EXPECT_TRUE(world_.hardware.isClean());
  EXPECT_EQ(world_.message(), kOnlySilence);
  EXPECT_EQ(
      world_.lastCause(),
      (AudioFailure{0, "process:812:812000: the program reports output for 10 s and every sample was zero"}));
}

TEST_F(AudioRouterSilenceTest, ATickAfterNinePointNineSecondsKeepsTheRoute) {
  world_.hardware.permissionDenied = true;
  world_.time.advance(0.1);
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.listenFor(10.0);
  EXPECT_TRUE(isRouted(812)) << "looked at after 9.9 s";
  world_.listenFor(1.0);
  EXPECT_FALSE(isRouted(812)) << "looked at after 10.9 s";
  EXPECT_EQ(world_.message(), kOnlySilence);
}

TEST_F(AudioRouterSilenceTest, AProgramThatIsHeardKeepsItsRoute) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.listenFor(60.0);
  EXPECT_TRUE(isRouted(812));
  EXPECT_EQ(world_.message(), std::nullopt);
}

TEST_F(AudioRouterSilenceTest, OneSampleInTheLastMomentIsEnough) {
  routeSilentProgram(812);
  hearAlmost(10.0);
  (void)world_.hardware.runCycle(world_.routeOf(812), fakes::StereoBlock{{0.0F, 0.0F}, {0.0F, 1e-30F}});
  world_.listenFor(60.0);
  EXPECT_TRUE(isRouted(812));
  EXPECT_EQ(world_.message(), std::nullopt);
}

TEST_F(AudioRouterSilenceTest, SilenceAfterASoundLongAgoIsLeftAlone) {
  const AudioObjectID process = world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.hardware.runCycles();
  world_.hardware.process(process).silent = true;
  world_.listenFor(600.0);
  EXPECT_TRUE(isRouted(812));
  EXPECT_EQ(world_.message(), std::nullopt);
}

TEST_F(AudioRouterSilenceTest, WhatARouteHeardCountsAfterItsEndAndForOtherPrograms) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.playFor(1.0);
  EXPECT_EQ(world_.setGain(1.0, 812), std::nullopt);
  world_.leave(812);
  routeSilentProgram(813);
  world_.listenFor(60.0);
  EXPECT_TRUE(isRouted(813));
  EXPECT_EQ(world_.message(), std::nullopt);
}

TEST_F(AudioRouterSilenceTest, OneRouteThatIsHeardKeepsAllOfThem) {
  routeSilentProgram(812);
  routeSilentProgram(813);
  world_.play(814);
  EXPECT_EQ(world_.setGain(0.6, 814), std::nullopt);
  world_.listenFor(60.0);
  world_.expectWholeRoutes(3);
  EXPECT_EQ(world_.message(), std::nullopt);
}

TEST_F(AudioRouterSilenceTest, WhereNoneIsHeardEachRouteEndsAfterItsOwnTenSeconds) {
  routeSilentProgram(812);
  world_.listenFor(5.0);
  routeSilentProgram(813);
  world_.listenFor(5.0);
  EXPECT_FALSE(isRouted(812));
  EXPECT_TRUE(isRouted(813));
  EXPECT_EQ(world_.message(), kOnlySilence);
  world_.listenFor(4.0);
  EXPECT_TRUE(isRouted(813));
  world_.listenFor(1.0);
  EXPECT_FALSE(isRouted(813));
  EXPECT_EQ(world_.lastCause().text.substr(0, 18), "process:813:813000");
}

TEST_F(AudioRouterSilenceTest, WhatAnotherClientsRouteHearsCounts) {
  routeSilentProgram(812);
  const auto other = world_.makeRouter();
  world_.play(813);
  other->queue()->submit([&] { other->setGain(0.6, {keyOf(813)}); });
  world_.time.run();
  world_.listenFor(60.0);
  EXPECT_TRUE(isRouted(812));
  EXPECT_EQ(world_.message(), std::nullopt);
}

TEST_F(AudioRouterSilenceTest, AProgramThatReportsNoOutputIsNotExpectedToBeHeard) {
  world_.play(812, {}, false);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.listenFor(60.0);
  EXPECT_TRUE(isRouted(812));
  EXPECT_EQ(world_.message(), std::nullopt);
}

TEST_F(AudioRouterSilenceTest, TheTenSecondsBeginWhenTheProgramReportsOutput) {
  world_.hardware.permissionDenied = true;
  world_.play(812, {}, false);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.listenFor(20.0);
  world_.time.advance(0.5);
  world_.setRunning(812, true);
  world_.listenFor(10.0);
  EXPECT_TRUE(isRouted(812)) << "looked at after 9.5 s";
  world_.listenFor(0.5);
  EXPECT_FALSE(isRouted(812)) << "looked at after 10.5 s";
  EXPECT_EQ(world_.message(), kOnlySilence);
}

TEST_F(AudioRouterSilenceTest, APauseBetweenTwoLooksStartsTheTenSecondsAnew) {
  routeSilentProgram(812);
  world_.listenFor(9.0);
  world_.time.advance(0.25);
  world_.setRunning(812, false);
  world_.time.advance(0.25);
  world_.setRunning(812, true);
  world_.listenFor(10.0);
  EXPECT_TRUE(isRouted(812)) << "looked at after 9.5 s";
  world_.listenFor(0.5);
  EXPECT_FALSE(isRouted(812)) << "looked at after 10.5 s";
}

TEST_F(AudioRouterSilenceTest, AnotherGainStartsNothingAnewAndAnotherRouteDoes) {
  routeSilentProgram(812);
  world_.listenFor(9.0);
  EXPECT_EQ(world_.setGain(0.7, 812), std::nullopt);
  world_.listenFor(1.0);
  EXPECT_FALSE(isRouted(812));
  EXPECT_EQ(world_.setGain(0.7, 812), std::nullopt);
  world_.listenFor(9.0);
  EXPECT_TRUE(isRouted(812));
  world_.listenFor(1.0);
  EXPECT_FALSE(isRouted(812));
}

TEST_F(AudioRouterSilenceTest, ARouteThatDoesNotEvenRenderHasStalled) {
  world_.hardware.permissionDenied = true;
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.time.advance(3.0);
  EXPECT_FALSE(isRouted(812));
  EXPECT_EQ(world_.message(), "Audio routing stopped responding. Normal playback has been restored.");
}

TEST(AudioRouterWithoutSilenceRuleTest, LeavesSilenceAloneForEver) {
  RouterWorld world;
  world.hardware.permissionDenied = true;
  world.play(812);
  EXPECT_EQ(world.setGain(0.4, 812), std::nullopt);
  world.listenFor(600.0);
  EXPECT_NE(world.routeOf(812), 0U);
  EXPECT_EQ(world.message(), std::nullopt);
}

}  // namespace
}  // namespace monitor
