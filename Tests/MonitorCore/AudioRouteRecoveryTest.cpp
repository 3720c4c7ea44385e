// SPDX-License-Identifier: MIT
#include "MonitorCore/AudioRouteRecovery.h"

#include <gmock/gmock.h>

namespace monitor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Intent = AudioRouteRecovery::Intent;

const std::vector<ProcessKey> kFirst{{812, 5000}};
const std::vector<ProcessKey> kSecond{{900, 1}, {901, 2}};

TEST(AudioRouteRecovery, StartsEmpty) {
  AudioRouteRecovery recovery;
  EXPECT_THAT(recovery.pending(), IsEmpty());
  EXPECT_THAT(recovery.takePending(), IsEmpty());
}

TEST(AudioRouteRecovery, KeepsOneIntentForEachApplication) {
  AudioRouteRecovery recovery;
  recovery.remember("a", kFirst, 0.4);
  recovery.remember("b", kSecond, 0.0);
  EXPECT_THAT(recovery.takePending(), UnorderedElementsAre(Intent{kFirst, 0.4}, Intent{kSecond, 0.0}));
}

TEST(AudioRouteRecovery, RememberingAnApplicationTwiceKeepsOnlyTheSecondIntent) {
  AudioRouteRecovery recovery;
  recovery.remember("a", kFirst, 0.4);
  recovery.remember("a", kSecond, 0.7);
  EXPECT_THAT(recovery.takePending(), ElementsAre(Intent{kSecond, 0.7}));
}

TEST(AudioRouteRecovery, TakingLeavesNothing) {
  AudioRouteRecovery recovery;
  recovery.remember("a", kFirst, 0.4);
  EXPECT_THAT(recovery.takePending(), ElementsAre(Intent{kFirst, 0.4}));
  EXPECT_THAT(recovery.takePending(), IsEmpty());
}

TEST(AudioRouteRecovery, RemovesOneApplication) {
  AudioRouteRecovery recovery;
  recovery.remember("a", kFirst, 0.4);
  recovery.remember("b", kSecond, 0.7);
  recovery.remove("a");
  EXPECT_THAT(recovery.takePending(), ElementsAre(Intent{kSecond, 0.7}));
}

TEST(AudioRouteRecovery, RemovingAnUnknownApplicationChangesNothing) {
  AudioRouteRecovery recovery;
  recovery.remember("a", kFirst, 0.4);
  recovery.remove("b");
  EXPECT_THAT(recovery.takePending(), ElementsAre(Intent{kFirst, 0.4}));
}

TEST(AudioRouteRecovery, ClearingForgetsAll) {
  AudioRouteRecovery recovery;
  recovery.remember("a", kFirst, 0.4);
  recovery.remember("b", kSecond, 0.7);
  recovery.clear();
  EXPECT_THAT(recovery.takePending(), IsEmpty());
}

}  // namespace
}  // namespace monitor
