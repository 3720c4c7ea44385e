// SPDX-License-Identifier: MIT
// Who is let through to the helper: the policy as it is installed, read by a bus that believes a login
// manager of ours.
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "Tests/Integration/Helper/HelperWorld.h"

namespace monitor::tests {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class BusPolicyTest : public testing::Test {
 protected:
  void SetUp() override {
    if (::getuid() != 0) GTEST_SKIP() << "only root can become other users";
    if (!LoginManager::works()) GTEST_SKIP() << LoginManager::kWhyNot;
    world.emplace(PrivateBus::Options{
        .configurations = {fs::path(VESK_PACKAGING) / "app.vesk.native.monitor-helper.conf"},
        .through = login.through()});
  }
  // What a call of busctl as Anna says.
  [[nodiscard]] lab::CommandResult busctlAsAnna(const std::string& call) const {
    const std::string id = std::to_string(users.anna);
    return world->bus.run({"sh", "-c",
                           "exec setpriv --reuid=" + id + " --regid=" + id +
                               " --clear-groups busctl --address=" + world->bus.address() + " call " + call +
                               " 2>&1"});
  }

  const Users users = twoUsers();
  LoginManager login;
  std::optional<HelperWorld> world;
};

TEST_F(BusPolicyTest, UserOfAnActiveLocalSessionIsServed) {
  login.say(users.anna, "seat0", "seat0");
  const auto run = world->vesk({"advanced"}, users.anna);
  EXPECT_EQ(run.status, 0) << run.output;
}

TEST_F(BusPolicyTest, UserWithoutALocalSessionIsStoppedByTheBus) {
  login.say(users.anna, "seat0", "seat0");
  const auto run = world->vesk({"advanced"}, users.bert);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "vesk: Only the user of an active local session may have these readings.\n");
  EXPECT_EQ(world->bus.ownerOf(kHelperName), 0) << "the helper was started for somebody who may not call it";
  login.say(users.bert, "", "");  // logged in, from elsewhere
  EXPECT_EQ(world->vesk({"advanced"}, users.bert).status, 1);
}

TEST_F(BusPolicyTest, UserWhoseSessionIsInTheBackgroundIsToldSoByTheHelper) {
  login.say(users.anna, "seat0", "");
  const auto run = world->vesk({"advanced"}, users.anna);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "vesk: Only the user of an active local session may have these readings.\n");
  login.say(users.anna, "seat0", "seat0");  // back at the screen
  EXPECT_EQ(world->vesk({"advanced"}, users.anna).status, 0);
}

TEST_F(BusPolicyTest, RootIsServedWithoutASession) {
  EXPECT_EQ(world->vesk({"advanced"}).status, 0);
}

TEST_F(BusPolicyTest, OnlyRootMayTakeTheName) {
  login.say(users.anna, "seat0", "seat0");
  const auto run = busctlAsAnna(
      "org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus RequestName su "
      "app.vesk.native.monitor-helper 0");
  EXPECT_NE(run.status, 0);
  EXPECT_THAT(run.output, HasSubstr("denied"));
}

TEST_F(BusPolicyTest, UserAtTheMachineMayCallNothingButTheOneMethod) {
  login.say(users.anna, "seat0", "seat0");
  const std::string object = "app.vesk.native.monitor-helper /app/vesk/native/monitor_helper ";
  const auto properties =
      busctlAsAnna(object + "org.freedesktop.DBus.Properties GetAll s app.vesk.native.MonitorHelper");
  EXPECT_NE(properties.status, 0);
  EXPECT_THAT(properties.output, HasSubstr("denied"));
  const auto collect = busctlAsAnna(object + "app.vesk.native.MonitorHelper Collect");
  EXPECT_EQ(collect.status, 0) << collect.output;
}

}  // namespace
}  // namespace monitor::tests
