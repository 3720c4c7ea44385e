// SPDX-License-Identifier: MIT
#include "MonitorMac/MonitorPlatform.h"

#include <gtest/gtest.h>

#include "Tests/Fakes/FakeSystemInformation.h"

namespace monitor {
namespace {

using fakes::FakeSystemInformation;

TEST(MonitorPlatformTest, HistoryLiesInAFolderNamedAfterTheBundle) {
  FakeSystemInformation system;
  system.bundle = "org.example.host";
  EXPECT_EQ(MonitorPlatform::historyURL(system), "/home/me/data/org.example.host/Monitor/history.sqlite");
}

TEST(MonitorPlatformTest, HistoryOfAPlainProgramLiesInTheMonitorsOwnFolder) {
  EXPECT_EQ(MonitorPlatform::historyURL(FakeSystemInformation{}),
            "/home/me/data/app.vesk.native/Monitor/history.sqlite");
}

TEST(MonitorPlatformTest, HistoryFollowsTheSystemsAnswerOnEveryAccess) {
  FakeSystemInformation system;
  system.bundle = "a";
  EXPECT_EQ(MonitorPlatform::historyURL(system), "/home/me/data/a/Monitor/history.sqlite");
  system.bundle = "b";
  EXPECT_EQ(MonitorPlatform::historyURL(system), "/home/me/data/b/Monitor/history.sqlite");
}

TEST(MonitorPlatformTest, AudioNeedsMacOSFourteenPointTwo) {
  const auto supports = [](OperatingSystemVersion version) {
    FakeSystemInformation system;
    system.version = version;
    return MonitorPlatform::supportsAudio(system);
  };
  EXPECT_FALSE(supports({14, 1, 0}));
  EXPECT_FALSE(supports({14, 1, 9}));
  EXPECT_FALSE(supports({13, 9, 0}));
  EXPECT_TRUE(supports({14, 2, 0}));
  EXPECT_TRUE(supports({14, 2, 1}));
  EXPECT_TRUE(supports({15, 0, 0}));
}

TEST(MonitorPlatformTest, SystemsThatAreNotMacOSSupportAudio) {
  EXPECT_TRUE(MonitorPlatform::supportsAudio(FakeSystemInformation{}));
}

}  // namespace
}  // namespace monitor
