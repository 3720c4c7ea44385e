// SPDX-License-Identifier: MIT
#include "Platform/Linux/Base/LinuxSystemInformation.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "MonitorMac/MonitorPlatform.h"

namespace monitor::platform {
namespace {

TEST(LinuxSystemInformationTest, TellsThisProcessAndItsUser) {
  const auto system = makeSystemInformation();
  EXPECT_EQ(system->processIdentifier(), getpid());
  EXPECT_EQ(system->userIdentifier(), getuid());
}

TEST(LinuxSystemInformationTest, RulesAboutMacOSDoNotApply) {
  const auto system = makeSystemInformation();
  EXPECT_EQ(system->macOSVersion(), std::nullopt);
  EXPECT_EQ(system->mainBundleIdentifier(), std::nullopt);
  EXPECT_TRUE(MonitorPlatform::supportsAudio(*system));
}

TEST(LinuxSystemInformationTest, HistoryLiesBelowTheUsersDataFolder) {
  const auto system = makeSystemInformation();
  const char* before = std::getenv("XDG_DATA_HOME");
  const std::optional<std::string> kept =
      before == nullptr ? std::nullopt : std::optional<std::string>(before);
  setenv("XDG_DATA_HOME", "/data/me/", 1);
  EXPECT_EQ(MonitorPlatform::historyURL(*system), "/data/me/app.vesk.native/Monitor/history.sqlite");
  if (kept) {
    setenv("XDG_DATA_HOME", kept->c_str(), 1);
  } else {
    unsetenv("XDG_DATA_HOME");
  }
}

}  // namespace
}  // namespace monitor::platform
