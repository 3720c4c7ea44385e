// SPDX-License-Identifier: MIT
#include "MonitorCore/MonitorServiceIdentity.h"

#include <gtest/gtest.h>

#include <string_view>

namespace monitor {
namespace {

// What can stand in a static assertion depends on nothing that is set when the program runs.
static_assert(MonitorServiceIdentity::helper == "app.vesk.native.monitor-helper");
static_assert(MonitorServiceIdentity::helperPlist == "app.vesk.native.monitor-helper.plist");
static_assert(MonitorServiceIdentity::audio == "app.vesk.native.monitor-audio");
static_assert(MonitorServiceIdentity::clientRequirement ==
              "anchor apple generic and certificate leaf[subject.OU] = \"Q7RKM24XZT\" and (identifier "
              "\"app.vesk.native\" or identifier \"app.vesk.native.rc\")");

TEST(MonitorServiceIdentityTest, RequirementEndsInTheIdentifierAndAQuote) {
  EXPECT_EQ(MonitorServiceIdentity::requirement("x"),
            "anchor apple generic and certificate leaf[subject.OU] = \"Q7RKM24XZT\" and identifier \"x\"");
}

TEST(MonitorServiceIdentityTest, NothingIsEscapedInTheIdentifier) {
  EXPECT_EQ(MonitorServiceIdentity::requirement("a\"b\\"),
            "anchor apple generic and certificate leaf[subject.OU] = \"Q7RKM24XZT\" and identifier \"a\"b\\\"");
}

}  // namespace
}  // namespace monitor
