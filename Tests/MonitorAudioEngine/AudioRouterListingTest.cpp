// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include "Tests/MonitorAudioEngine/RouterWorld.h"

namespace monitor {
namespace {

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class AudioRouterListingTest : public testing::Test {
 protected:
  std::vector<AudioApplication> list() { return world_.list().applications; }
  // The one program there is.
  AudioApplication only() {
    const auto applications = list();
    EXPECT_THAT(applications, SizeIs(1));
    return applications.empty() ? AudioApplication{} : applications.front();
  }
  AudioObjectID playFrom(std::int32_t pid, const std::string& executable, const std::string& bundleID = {}) {
    const AudioObjectID object = world_.play(pid, bundleID);
    world_.processes.processes.at(pid).executable = executable;
    return object;
  }

  RouterWorld world_;
};

TEST_F(AudioRouterListingTest, WithoutProgramsTheListIsEmpty) {
  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(AudioRouterListingTest, AProgramIsListedWithAllItsFields) {
  playFrom(812, "/usr/bin/player", "org.example.player");
  EXPECT_THAT(list(), ElementsAre(AudioApplication{
                          "org.example.player", "player", "org.example.player", {keyOf(812)}, 1.0, true}));
}

TEST_F(AudioRouterListingTest, EachProcessIsReadInOrder) {
  const std::string first = std::to_string(playFrom(812, "/usr/bin/player"));
  const std::string second = std::to_string(playFrom(813, "/opt/Tune.app/bin/tune"));
  world_.bundles.folders["/opt/Tune.app"].identifier = "org.example.tune";
  world_.hardware.forgetCalls();
  (void)list();
  EXPECT_THAT(world_.hardware.callTexts(),
              ElementsAre("propertyDataSize 1 prs#", "propertyData 1 prs#",                      //
                          "propertyData " + first + " ppid", "propertyData " + first + " piro",  //
                          "propertyString " + first + " pbid",                                   //
                          "propertyData " + second + " ppid", "propertyData " + second + " piro"))
      << "a bundle with an identifier is not asked for another";
}

TEST_F(AudioRouterListingTest, AProcessWhosePidCannotBeReadIsSkipped) {
  world_.hardware.process(world_.play(812)).pidStatus = -2;
  world_.play(813);
  EXPECT_EQ(only().processes, std::vector{keyOf(813)});
}

TEST_F(AudioRouterListingTest, TheServiceItselfIsSkipped) {
  world_.play(kOwnPid);
  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(AudioRouterListingTest, AProcessThatIsGoneIsSkipped) {
  world_.play(812);
  world_.processes.end(812);
  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(AudioRouterListingTest, AProcessOfAnotherUserIsSkipped) {
  world_.play(812);
  world_.processes.processes.at(812).record.owner = kUser + 1;
  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(AudioRouterListingTest, AProcessRunsWhenItsPropertyIsOne) {
  const AudioObjectID object = world_.play(812, {}, false);
  EXPECT_FALSE(only().running);
  world_.hardware.process(object).running = true;
  EXPECT_TRUE(only().running);
  world_.hardware.process(object).runningStatus = -2;
  EXPECT_FALSE(only().running) << "what cannot be read does not run";
}

TEST_F(AudioRouterListingTest, TheFirstApplicationFolderFromTheRootIsTheBundle) {
  playFrom(812, "/Applications/Outer.app/Contents/Helper.app/helper");
  world_.bundles.folders["/Applications/Outer.app"] = {"org.example.outer", "Outer Shown", "Outer", "/x"};
  world_.bundles.folders["/Applications/Outer.app/Contents/Helper.app"] = {"org.example.helper", "H", "H",
                                                                           "/y"};
  EXPECT_EQ(only().id, "org.example.outer");
  EXPECT_EQ(only().bundleID, "org.example.outer");
  EXPECT_EQ(only().name, "Outer Shown");
}

TEST_F(AudioRouterListingTest, TheNameIsTheDisplayNameElseTheNameElseTheFileName) {
  playFrom(812, "/Applications/Tune.app/bin/tune-bin");
  ApplicationBundle& bundle = world_.bundles.folders["/Applications/Tune.app"];
  EXPECT_EQ(only().name, "tune-bin");
  bundle.name = "Tune";
  EXPECT_EQ(only().name, "Tune");
  bundle.displayName = "Tune Player";
  EXPECT_EQ(only().name, "Tune Player");
  world_.processes.processes.at(812).executable = "no-folder";
  EXPECT_EQ(only().name, "no-folder");
  world_.processes.processes.at(812).executable = "";
  EXPECT_EQ(only().name, "");
}

TEST_F(AudioRouterListingTest, WithoutABundleIdentifierTheAudioSystemsOneIsTaken) {
  playFrom(812, "/Applications/Tune.app/bin/tune", "org.example.from-audio");
  world_.bundles.folders["/Applications/Tune.app"].displayName = "Tune Player";
  EXPECT_EQ(only().id, "org.example.from-audio");
  EXPECT_EQ(only().name, "Tune Player");
  world_.bundles.folders["/Applications/Tune.app"].identifier = "org.example.from-bundle";
  EXPECT_EQ(only().id, "org.example.from-bundle");
}

TEST_F(AudioRouterListingTest, WithoutAnyIdentifierTheProcessKeyIsTheId) {
  const AudioObjectID object = world_.play(812);
  const auto expectFallback = [&] {
    EXPECT_EQ(only().id, "process:812:812000");
    EXPECT_EQ(only().bundleID, std::nullopt);
  };
  expectFallback();
  world_.hardware.process(object).bundleID.reset();
  expectFallback();
  world_.hardware.process(object).bundleID = "org.example.player";
  world_.hardware.process(object).bundleStatus = -2;
  expectFallback();
}

TEST_F(AudioRouterListingTest, ProcessesOfOneApplicationAreMerged) {
  playFrom(812, "/usr/bin/first", "org.example.suite");
  playFrom(900, "/usr/bin/other", "org.example.other");
  playFrom(813, "/usr/bin/second", "org.example.suite");
  world_.setRunning(812, false);
  const auto applications = list();
  ASSERT_THAT(applications, SizeIs(2));
  EXPECT_EQ(applications[0].id, "org.example.suite");
  EXPECT_EQ(applications[0].name, "first");
  EXPECT_EQ(applications[0].processes, (std::vector{keyOf(812), keyOf(813)}));
  EXPECT_TRUE(applications[0].running) << "one of its processes runs";
  EXPECT_EQ(applications[1].processes, std::vector{keyOf(900)});
  world_.setRunning(813, false);
  EXPECT_FALSE(list()[0].running);
}

TEST_F(AudioRouterListingTest, TheGainIsThatOfTheLiveRoute) {
  world_.play(812, "org.example.a");
  world_.play(813, "org.example.b");
  EXPECT_EQ(world_.setGain(0.4, 812), std::nullopt);
  const auto applications = list();
  ASSERT_THAT(applications, SizeIs(2));
  EXPECT_EQ(applications[0].gain, 0.4);
  EXPECT_EQ(applications[1].gain, 1.0);
}

TEST_F(AudioRouterListingTest, AListThatCannotBeReadIsAnErrorWithItsCause) {
  for (const std::size_t call : {1U, 2U}) {
    world_.play(812);
    world_.hardware.failCall(call, -32);
    std::optional<AudioRouteError> caught;
    world_.onQueue([&] {
      try {
        (void)world_.router->applications();
      } catch (const AudioRouteError& error) {
        caught = error;
      }
    });
    EXPECT_EQ(caught, AudioRouteError::system(-32));
    EXPECT_EQ(world_.lastCause().code, -32);
    EXPECT_THAT(world_.lastCause().text, testing::HasSubstr("The audio system said no."));
  }
}

TEST_F(AudioRouterListingTest, AnAudioSystemThatGoesAwayWhileItIsReadIsAnError) {
  for (const char* property : {" ppid", " piro", " pbid"}) {
    RouterWorld world;
    world.play(812);
    world.hardware.beforeCall = [&](const std::string& text) {
      if (text.ends_with(property)) world.hardware.loseServer();
    };
    std::optional<AudioRouteError> caught;
    world.onQueue([&] {
      try {
        (void)world.router->applications();
      } catch (const AudioRouteError& error) {
        caught = error;
      }
    });
    world.hardware.beforeCall = nullptr;
    EXPECT_EQ(caught, AudioRouteError::system(-32)) << "a list that lacks what was not read would be a lie";
  }
}

TEST_F(AudioRouterListingTest, TextsThatAreNotUtf8DoNotCostTheList) {
  playFrom(812, "/Applications/Tune.app/bin/tune");
  world_.bundles.folders["/Applications/Tune.app"].displayName = "Tune\xFF";
  playFrom(813, "/usr/bin/pl\xFFyer", "org.\xFF");
  const auto applications = list();
  ASSERT_THAT(applications, SizeIs(2));
  EXPECT_EQ(applications[0].name, "Tune\xEF\xBF\xBD");
  EXPECT_EQ(applications[1].id, "org.\xEF\xBF\xBD");
  EXPECT_EQ(applications[1].name, "pl\xEF\xBF\xBDyer");
  EXPECT_NO_THROW((void)encodeApplications(applications));
}

TEST_F(AudioRouterListingTest, AListCostsAFixedNumberOfReadsForEachProcess) {
  constexpr std::size_t kPrograms = 200;
  for (std::size_t index = 0; index < kPrograms; ++index)
    world_.play(1000 + static_cast<std::int32_t>(index));
  world_.hardware.forgetCalls();
  world_.processes.recordReads = 0;
  world_.processes.executableReads = 0;
  world_.bundles.lookups = 0;
  EXPECT_THAT(list(), SizeIs(kPrograms));
  EXPECT_EQ(world_.hardware.calls().size(), 2 + 3 * kPrograms);
  EXPECT_EQ(world_.processes.recordReads, static_cast<int>(kPrograms));
  EXPECT_EQ(world_.processes.executableReads, static_cast<int>(kPrograms));
  EXPECT_EQ(world_.bundles.lookups, static_cast<int>(kPrograms));
}

}  // namespace
}  // namespace monitor
