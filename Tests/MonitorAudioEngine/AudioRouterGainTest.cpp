// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "Tests/MonitorAudioEngine/RouterWorld.h"

namespace monitor {
namespace {

using namespace testing_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::vector<std::string> kBuild{"createProcessTap", "createAggregateDevice", "createIOProc",
                                      "startDevice"};
const std::vector<std::string> kTearDown{"stopDevice", "destroyIOProc", "destroyAggregateDevice",
                                         "destroyProcessTap"};

class AudioRouterGainTest : public testing::Test {
 protected:
  RouterWorld world_;
};

TEST_F(AudioRouterGainTest, AGainIsHeard) {
  world_.play(812);
  world_.play(813);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  EXPECT_EQ(world_.level(812), 0.4F);
  EXPECT_EQ(world_.level(813), 1.0F) << "others are untouched";
  world_.expectWholeRoutes(1);
}

TEST_F(AudioRouterGainTest, GainZeroIsSilence) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.0, 812), std::nullopt);
  EXPECT_EQ(world_.level(812), 0.0F);
}

TEST_F(AudioRouterGainTest, ARouteIsBuiltAfterTheListAndTheDefaultOutput) {
  const std::string object = std::to_string(world_.play(812));
  world_.hardware.forgetCalls();
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  const std::string output = std::to_string(world_.hardware.defaultOutput());
  const std::string device = std::to_string(world_.routeOf(812));
  const std::string tap = std::to_string(world_.hardware.taps().begin()->first);
  EXPECT_THAT(
      world_.hardware.callTexts(),
      ElementsAre("propertyDataSize 1 prs#", "propertyData 1 prs#", "propertyData " + object + " ppid",
                  "propertyData " + object + " piro", "propertyString " + object + " pbid",
                  "propertyData 1 dOut", "propertyString " + output + " uid ",
                  "propertyData " + output + " sfmt", "createProcessTap", "propertyData " + tap + " tfmt",
                  "createAggregateDevice", "createIOProc " + device, "startDevice " + device));
}

TEST_F(AudioRouterGainTest, FullGainWithoutARouteChangesNothing) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(1.0, 812), std::nullopt);
  EXPECT_THAT(world_.hardware.routeCalls(), IsEmpty());
}

TEST_F(AudioRouterGainTest, FullGainEndsTheRoute) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.hardware.forgetCalls();
  EXPECT_EQ(world_.setGain(1.0, 812), std::nullopt);
  EXPECT_EQ(world_.hardware.routeCalls(), kTearDown);
  EXPECT_FALSE(world_.hardware.isMuted(world_.hardware.processOf(812)));
  EXPECT_EQ(world_.list().applications.front().gain, 1.0);
}

TEST_F(AudioRouterGainTest, TheSameSelectionAgainChangesTheGainInPlace) {
  world_.play(812, "org.example.suite");
  world_.play(813, "org.example.suite");
  EXPECT_EQ(world_.setGain(0.5, {keyOf(812), keyOf(813)}), std::nullopt);
  const AudioObjectID route = world_.routeOf(812);
  world_.hardware.forgetCalls();
  EXPECT_EQ(world_.setGain(0.5, {keyOf(812), keyOf(813)}), std::nullopt);
  EXPECT_EQ(world_.setGain(0.25, {keyOf(813), keyOf(812)}), std::nullopt) << "the order does not matter";
  EXPECT_THAT(world_.hardware.routeCalls(), IsEmpty());
  EXPECT_EQ(world_.routeOf(812), route);
  EXPECT_EQ(world_.routeOf(813), route);
  EXPECT_EQ(world_.level(812), 0.25F);
  EXPECT_EQ(world_.list().applications.front().gain, 0.25);
}

TEST_F(AudioRouterGainTest, AGainOutsideZeroToOneIsRefusedBeforeAnythingIsAsked) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  world_.hardware.forgetCalls();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const double gain : {1.5, std::nextafter(1.0, 2.0), -0.1, -std::numeric_limits<double>::denorm_min(),
                            kInfinity, -kInfinity, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EQ(world_.setGain(gain, 812), AudioRouteError::changedProcess()) << gain;
  }
  EXPECT_THAT(world_.hardware.calls(), IsEmpty());
  EXPECT_EQ(world_.level(812), 0.4F) << "what was routed stays";
  EXPECT_EQ(world_.setGain(1.5, 812)->what(),
            std::string("This audio app changed or closed. Refresh the app list."));
  EXPECT_EQ(world_.lastCause(), (AudioFailure{0, "the gain is 1.5, expected 0.0 to 1.0"}));
}

TEST_F(AudioRouterGainTest, GainsAtTheBoundsAreTaken) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.0, 812), std::nullopt);
  EXPECT_EQ(world_.setGain(-0.0, 812), std::nullopt);
  EXPECT_EQ(world_.setGain(std::nextafter(1.0, 0.0), 812), std::nullopt);
  world_.expectWholeRoutes(1);
  EXPECT_EQ(world_.setGain(1.0, 812), std::nullopt);
  world_.expectWholeRoutes(0);
}

TEST_F(AudioRouterGainTest, OneToAHundredAndTwentyEightProcessesAreTaken) {
  std::vector<ProcessKey> keys;
  for (std::int32_t pid = 1000; pid < 1128; ++pid) {
    world_.play(pid, "org.example.many");
    keys.push_back(keyOf(pid));
  }
  EXPECT_EQ(world_.setGain(0.5, keys), std::nullopt);
  EXPECT_EQ(world_.setGain(1.0, keys), std::nullopt);
  world_.play(1128, "org.example.many");
  keys.push_back(keyOf(1128));
  world_.hardware.forgetCalls();
  EXPECT_EQ(world_.setGain(0.5, keys), AudioRouteError::changedProcess());
  EXPECT_EQ(world_.lastCause(), (AudioFailure{0, "129 processes were given, expected 1 to 128"}));
  EXPECT_EQ(world_.setGain(0.5, std::vector<ProcessKey>{}), AudioRouteError::changedProcess());
  EXPECT_EQ(world_.lastCause(), (AudioFailure{0, "0 processes were given, expected 1 to 128"}));
  EXPECT_THAT(world_.hardware.calls(), IsEmpty());
}

TEST_F(AudioRouterGainTest, OnlyTheExactProcessesOfOneProgramMatch) {
  world_.play(812, "org.example.suite");
  world_.play(813, "org.example.suite");
  world_.play(900, "org.example.other");
  const auto cause = [this](const std::vector<ProcessKey>& keys) {
    EXPECT_EQ(world_.setGain(0.5, keys), AudioRouteError::changedProcess());
    return world_.lastCause().text;
  };
  EXPECT_EQ(cause({keyOf(812)}), "\"org.example.suite\" has process 813:813000 too");
  EXPECT_EQ(cause({keyOf(812), keyOf(813), keyOf(900)}),
            "process 812:812000 is in \"org.example.suite\", process 900:900000 in \"org.example.other\"");
  EXPECT_EQ(cause({keyOf(812), keyOf(813), {814, 1}}), "process 814:1 is in no program that uses audio now");
  EXPECT_EQ(cause({keyOf(812), {813, 1}}), "process 813:1 is in no program that uses audio now")
      << "a reused pid is another process";
  EXPECT_THAT(world_.hardware.routeCalls(), IsEmpty());
  EXPECT_EQ(world_.setGain(0.5, {keyOf(812), keyOf(813), keyOf(812)}), std::nullopt)
      << "a key that stands twice is in the set once";
}

TEST_F(AudioRouterGainTest, ASilentProgramCanBeGivenAGain) {
  world_.play(812, {}, false);
  EXPECT_EQ(world_.setGain(0.5, 812), std::nullopt);
  EXPECT_EQ(world_.level(812), 0.5F);
}

TEST_F(AudioRouterGainTest, WithoutADefaultOutputNothingIsBuilt) {
  world_.play(812);
  world_.hardware.setDefaultOutput(0);
  EXPECT_EQ(world_.setGain(0.5, 812), AudioRouteError::invalidFormat());
  EXPECT_EQ(world_.lastCause(), (AudioFailure{0, "there is no default output device"}));
  EXPECT_THAT(world_.hardware.routeCalls(), IsEmpty());
}

TEST_F(AudioRouterGainTest, AMonoOutputIsRefusedWithWhatWasFound) {
  world_.play(812);
  const AudioObjectID mono = world_.hardware.addDevice("mono", fakes::floatFormat(1, 48'000.0));
  world_.hardware.setDefaultOutput(mono);
  EXPECT_EQ(world_.setGain(0.5, 812), AudioRouteError::invalidFormat());
  EXPECT_THAT(world_.lastCause().text, HasSubstr("\"mono\" has 1 channel of 32-bit float at 48000 Hz"));
}

TEST_F(AudioRouterGainTest, ADeviceNameThatIsNotUtf8CanBeToldAll) {
  world_.play(812);
  world_.hardware.setDefaultOutput(world_.hardware.addDevice("mono\xFF", fakes::floatFormat(1, 48'000.0)));
  EXPECT_EQ(world_.setGain(0.5, 812), AudioRouteError::invalidFormat());
  EXPECT_THAT(world_.lastCause().text, HasSubstr("\"mono\xEF\xBF\xBD\""));
}

TEST_F(AudioRouterGainTest, AProgramWithOtherProcessesGetsANewRouteAfterTheOldOneEnded) {
  world_.play(812, "org.example.suite");
  EXPECT_EQ(world_.setGain(0.5, 812), std::nullopt);
  world_.hardware.notifies = false;
  world_.play(813, "org.example.suite");
  world_.hardware.forgetCalls();
  EXPECT_EQ(world_.setGain(0.25, {keyOf(812), keyOf(813)}), std::nullopt);
  std::vector<std::string> expected = kTearDown;
  expected.insert(expected.end(), kBuild.begin(), kBuild.end());
  EXPECT_EQ(world_.hardware.routeCalls(), expected);
  const auto texts = world_.hardware.callTexts();
  const auto output = std::find(texts.begin(), texts.end(), "propertyData 1 dOut");
  ASSERT_NE(output, texts.end());
  EXPECT_THAT(*std::prev(output), HasSubstr("destroyProcessTap"));
  EXPECT_EQ(world_.level(813), 0.25F);
}

TEST_F(AudioRouterGainTest, AProgramWithNewProcessObjectsGetsANewRoute) {
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.5, 812), std::nullopt);
  const AudioObjectID route = world_.routeOf(812);
  world_.hardware.notifies = false;
  world_.hardware.removeProcess(world_.hardware.processOf(812));
  world_.hardware.addProcess(812);
  EXPECT_EQ(world_.setGain(0.5, 812), std::nullopt) << "the same key, another object";
  EXPECT_NE(world_.routeOf(812), route);
  EXPECT_NE(world_.routeOf(812), 0U);
  world_.expectWholeRoutes(1);
}

TEST_F(AudioRouterGainTest, ARebuildThatFailsLeavesNormalPlayback) {
  world_.play(812, "org.example.suite");
  EXPECT_EQ(world_.setGain(0.5, 812), std::nullopt);
  world_.hardware.notifies = false;
  world_.play(813, "org.example.suite");
  world_.hardware.failMatching("createAggregateDevice", -12);
  EXPECT_EQ(world_.setGain(0.5, {keyOf(812), keyOf(813)}), AudioRouteError::system(-12));
  world_.expectWholeRoutes(0);
  EXPECT_EQ(world_.list().applications.front().gain, 1.0);
}

TEST_F(AudioRouterGainTest, AProgramThatAnotherClientRoutesIsRefused) {
  const auto other = world_.makeRouter();
  world_.play(812);
  EXPECT_EQ(world_.setGain(0.5, 812), std::nullopt);
  std::optional<AudioRouteError> refusal;
  other->queue()->submit([&] {
    try {
      other->setGain(0.9, {keyOf(812)});
    } catch (const AudioRouteError& error) {
      refusal = error;
    }
  });
  world_.time.run();
  EXPECT_EQ(refusal, AudioRouteError::system(-16));
  EXPECT_EQ(world_.level(812), 0.5F);
}

TEST_F(AudioRouterGainTest, StopEndsEveryRoute) {
  world_.play(812);
  world_.play(813);
  EXPECT_EQ(world_.setGain(0.5, 812), std::nullopt);
  EXPECT_EQ(world_.setGain(0.25, 813), std::nullopt);
  world_.hardware.forgetCalls();
  world_.stop();
  std::vector<std::string> expected = kTearDown;
  expected.insert(expected.end(), kTearDown.begin(), kTearDown.end());
  EXPECT_EQ(world_.hardware.routeCalls(), expected);
  EXPECT_EQ(world_.message(), std::nullopt);
  world_.hardware.forgetCalls();
  world_.stop();
  EXPECT_THAT(world_.hardware.calls(), IsEmpty());
}

TEST_F(AudioRouterGainTest, StopAsReceivedAsksTheAudioSystemNothing) {
  for (std::int32_t pid = 1000; pid < 1020; ++pid) world_.play(pid);
  world_.hardware.forgetCalls();
  world_.stop();
  EXPECT_THAT(world_.hardware.calls(), IsEmpty());
}

TEST_F(AudioRouterGainTest, TheLastCauseStartsEmptyAndIsKept) {
  EXPECT_EQ(world_.lastCause(), AudioFailure{});
  world_.play(812);
  world_.hardware.process(world_.hardware.processOf(812)).tapStatus = -13;
  EXPECT_EQ(world_.setGain(0.5, 812), AudioRouteError::system(-13));
  EXPECT_EQ(world_.lastCause().code, -13);
  EXPECT_THAT(world_.lastCause().text, HasSubstr("createProcessTap"));
  world_.hardware.process(world_.hardware.processOf(812)).tapStatus = 0;
  EXPECT_EQ(world_.setGain(0.5, 812), std::nullopt);
  EXPECT_EQ(world_.lastCause().code, -13) << "success does not make it forget";
}

}  // namespace
}  // namespace monitor
