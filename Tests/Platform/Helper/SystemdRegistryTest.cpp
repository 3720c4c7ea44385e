// SPDX-License-Identifier: MIT
#include "Platform/Linux/Helper/SystemdRegistry.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "MonitorCore/MonitorServiceIdentity.h"
#include "Platform/Linux/Ipc/BusNames.h"
#include "Tests/Platform/Helper/ServiceManagerMock.h"

namespace monitor::tests {
namespace {

using platform::SystemdRegistry;
namespace names = platform::names;

constexpr const char* kUnit = "vesk-helper.service";

TEST(UnitFileState, SaysWhetherTheHelperMayBeAsked) {
  for (const char* state :
       {"enabled", "enabled-runtime", "static", "indirect", "generated", "transient", "alias"}) {
    EXPECT_EQ(platform::daemonStatusOf(state), DaemonStatus::Enabled) << state;
  }
  for (const char* state : {"disabled", "masked", "masked-runtime", "linked", "linked-runtime"}) {
    EXPECT_EQ(platform::daemonStatusOf(state), DaemonStatus::NotRegistered) << state;
  }
  for (const char* state : {"", "bad", "ENABLED", "enabled ", "not-found"}) {
    EXPECT_EQ(platform::daemonStatusOf(state), DaemonStatus::NotFound) << state;
  }
}

TEST(UnitFileState, StatusesHaveTheNumbersOfTheRegister) {
  EXPECT_EQ(static_cast<int>(DaemonStatus::NotRegistered), 0);
  EXPECT_EQ(static_cast<int>(DaemonStatus::Enabled), 1);
  EXPECT_EQ(static_cast<int>(DaemonStatus::RequiresApproval), 2);
  EXPECT_EQ(static_cast<int>(DaemonStatus::NotFound), 3);
}

class SystemdRegistryTest : public ::testing::Test {
 protected:
  using Change = std::optional<MonitorError>;

  template <class Value>
  static Value wait(std::future<Value> future) {
    if (future.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
      throw std::runtime_error("the registry does not answer");
    }
    return future.get();
  }
  DaemonStatus status(std::string_view list = MonitorServiceIdentity::helperPlist) {
    const auto promise = std::make_shared<std::promise<DaemonStatus>>();
    registry.status(list, [promise](DaemonStatus status) { promise->set_value(status); });
    return wait(promise->get_future());
  }
  Change registerIt(std::string_view list = MonitorServiceIdentity::helperPlist) {
    const auto promise = std::make_shared<std::promise<Change>>();
    registry.registerDaemon(list, [promise](const Change& error) { promise->set_value(error); });
    return wait(promise->get_future());
  }
  Change unregisterIt() {
    const auto promise = std::make_shared<std::promise<Change>>();
    registry.unregisterDaemon(MonitorServiceIdentity::helperPlist,
                              [promise](const Change& error) { promise->set_value(error); });
    return wait(promise->get_future());
  }

  PrivateBus bus;
  SystemdRegistry registry{bus.busAddress()};
};

TEST_F(SystemdRegistryTest, StateOfTheUnitIsTheStatus) {
  ServiceManagerMock manager(bus);
  EXPECT_EQ(status(), DaemonStatus::NotFound);
  manager.setState(kUnit, "disabled");
  EXPECT_EQ(status(), DaemonStatus::NotRegistered);
  manager.setState(kUnit, "masked");
  EXPECT_EQ(status(), DaemonStatus::NotRegistered);
  for (const char* state : {"enabled", "static", "indirect"}) {
    manager.setState(kUnit, state);
    EXPECT_EQ(status(), DaemonStatus::Enabled) << state;
  }
  EXPECT_EQ(manager.calls().at(0), "GetUnitFileState vesk-helper.service");
}

TEST_F(SystemdRegistryTest, RefusedAuthorisationIsRequiresApproval) {
  ServiceManagerMock manager(bus);
  manager.setState(kUnit, "enabled");
  manager.failWith("GetUnitFileState", names::kAccessDenied);
  EXPECT_EQ(status(), DaemonStatus::RequiresApproval);
  manager.failWith("GetUnitFileState", names::kInteractiveAuthorizationRequired);
  EXPECT_EQ(status(), DaemonStatus::RequiresApproval);
  manager.failWith("GetUnitFileState", "");
  EXPECT_EQ(status(), DaemonStatus::Enabled);
}

TEST_F(SystemdRegistryTest, WithoutAServiceManagerThereIsNoDaemon) {
  EXPECT_EQ(status(), DaemonStatus::NotFound);
  EXPECT_TRUE(registerIt().has_value());
  bus.kill();
  EXPECT_EQ(status(), DaemonStatus::NotFound);
}

TEST_F(SystemdRegistryTest, OtherErrorsAreADaemonThatIsNotThere) {
  ServiceManagerMock manager(bus);
  manager.failWith("GetUnitFileState", "org.freedesktop.systemd1.NoSuchUnit");
  EXPECT_EQ(status(), DaemonStatus::NotFound);
}

TEST_F(SystemdRegistryTest, RegisteringEnablesAndStartsTheUnit) {
  ServiceManagerMock manager(bus);
  manager.setState(kUnit, "disabled");
  EXPECT_EQ(registerIt(), std::nullopt);
  EXPECT_EQ(manager.calls(), (std::vector<std::string>{"EnableUnitFiles vesk-helper.service false false",
                                                       "Reload", "StartUnit vesk-helper.service replace"}));
  EXPECT_TRUE(manager.everyChangeMayAsk());
  EXPECT_EQ(status(), DaemonStatus::Enabled);
}

TEST_F(SystemdRegistryTest, UnregisteringDisablesAndStopsTheUnit) {
  ServiceManagerMock manager(bus);
  manager.setState(kUnit, "enabled");
  EXPECT_EQ(unregisterIt(), std::nullopt);
  EXPECT_EQ(manager.calls(), (std::vector<std::string>{"DisableUnitFiles vesk-helper.service false", "Reload",
                                                       "StopUnit vesk-helper.service replace"}));
  EXPECT_TRUE(manager.everyChangeMayAsk());
  EXPECT_EQ(status(), DaemonStatus::NotRegistered);
}

TEST_F(SystemdRegistryTest, RefusedRegistrationStopsThereAndWaitsForApproval) {
  ServiceManagerMock manager(bus);
  manager.setState(kUnit, "disabled");
  manager.failWith("EnableUnitFiles", names::kAccessDenied);
  const auto error = registerIt();
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->domain(), names::kAccessDenied);
  EXPECT_STREQ(error->what(), "The mock says no.");
  EXPECT_EQ(manager.calls().size(), 1U);
  EXPECT_EQ(status(), DaemonStatus::RequiresApproval);
  manager.failWith("EnableUnitFiles", "");
  EXPECT_EQ(registerIt(), std::nullopt);
  EXPECT_EQ(status(), DaemonStatus::Enabled);
  EXPECT_EQ(unregisterIt(), std::nullopt);
  EXPECT_EQ(status(), DaemonStatus::NotRegistered);
}

TEST_F(SystemdRegistryTest, ErrorOfALaterStepIsHandedOver) {
  ServiceManagerMock manager(bus);
  manager.setState(kUnit, "disabled");
  manager.failWith("StartUnit", "org.freedesktop.systemd1.UnitMasked");
  const auto error = registerIt();
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->domain(), "org.freedesktop.systemd1.UnitMasked");
}

TEST_F(SystemdRegistryTest, OtherDescriptionsAreOfNoDaemon) {
  ServiceManagerMock manager(bus);
  EXPECT_EQ(status("some.other.plist"), DaemonStatus::NotFound);
  const auto error = registerIt("some.other.plist");
  ASSERT_TRUE(error.has_value());
  EXPECT_STREQ(error->what(), "No daemon is described by some.other.plist.");
  EXPECT_TRUE(manager.calls().empty());
}

}  // namespace
}  // namespace monitor::tests
