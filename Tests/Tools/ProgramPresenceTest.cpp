// SPDX-License-Identifier: MIT
#include "Tools/vesk/Agent/ProgramPresence.h"

#include <gtest/gtest.h>

#include "Tests/Fakes/FakeApplicationBundles.h"
#include "Tests/Fakes/FakeProcessTable.h"

namespace monitor::vesk {
namespace {

constexpr std::uint32_t kUser = 1000;

class ProgramPresenceTest : public testing::Test {
 protected:
  ProgramPresenceTest() {
    processes_.add({100, 50'000'007}, "/usr/bin/player", kUser);
    processes_.add({101, 60'000'000}, "/usr/lib/browser/audio", kUser);
  }

  fakes::FakeProcessTable processes_;
  fakes::FakeApplicationBundles bundles_;
  ProcessTablePresence presence_{processes_, bundles_, kUser};
  // The service's starts lie an hour off, as after a step of the wall clock between the two programs' starts.
  AudioApplication player_{"process:100:3650000007", "player", std::nullopt,
                           {{100, 3'650'000'007}},   1.0,      true};
  AudioApplication browser_{"org.example.browser", "Browser", "org.example.browser", {{101, 1}}, 1.0, true};
};

TEST_F(ProgramPresenceTest, AProgramLivesAsLongAsOneOfItsProcesses) {
  player_.processes.push_back({101, 1});
  presence_.saw(player_);
  EXPECT_TRUE(presence_.lives(player_));
  processes_.end(100);
  EXPECT_TRUE(presence_.lives(player_));
  processes_.end(101);
  EXPECT_FALSE(presence_.lives(player_));
}

TEST_F(ProgramPresenceTest, AReusedPidIsAnotherProgram) {
  presence_.saw(player_);
  processes_.processes[100].record.startSeconds += 10;
  EXPECT_FALSE(presence_.lives(player_));
}

TEST_F(ProgramPresenceTest, AMicrosecondTellsTwoStartsApart) {
  presence_.saw(player_);
  processes_.processes[100].record.startMicroseconds += 1;
  EXPECT_FALSE(presence_.lives(player_));
}

TEST_F(ProgramPresenceTest, AProgramThatWasNeverSeenDoesNotLive) {
  EXPECT_FALSE(presence_.lives(player_));
}

TEST_F(ProgramPresenceTest, AForgottenProgramDoesNotLive) {
  presence_.saw(player_);
  presence_.forget(player_.id);
  EXPECT_FALSE(presence_.lives(player_));
}

TEST_F(ProgramPresenceTest, ABundleLivesInAnyProcessOfItsUser) {
  presence_.saw(browser_);
  processes_.end(101);
  bundles_.processes[100].identifier = "org.example.browser";
  EXPECT_TRUE(presence_.lives(browser_));
  processes_.processes[100].record.owner = kUser + 1;
  EXPECT_FALSE(presence_.lives(browser_));
}

TEST_F(ProgramPresenceTest, AnotherBundlesProcessesDoNotCount) {
  presence_.saw(browser_);
  processes_.end(101);
  bundles_.processes[100].identifier = "org.example.other";
  EXPECT_FALSE(presence_.lives(browser_));
}

}  // namespace
}  // namespace monitor::vesk
