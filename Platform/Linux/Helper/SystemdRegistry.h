// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string_view>

#include "MonitorMac/Ports/DaemonRegistry.h"
#include "Platform/Linux/Ipc/Bus.h"

namespace monitor::platform {

// The system's service manager as the register of daemons: a daemon is registered when its unit is enabled.
// The bus starts the unit when somebody calls it, through a name that only an enabled unit has; so a disabled
// helper is never started, whoever calls.
//
// Completions run on a thread of the bus. A change may ask the user for a password, and then takes as long as
// that.
class SystemdRegistry final : public DaemonRegistry {
 public:
  // The system bus by default; tests have a bus of their own.
  explicit SystemdRegistry(BusAddress address = {.kind = BusAddress::Kind::System});
  ~SystemdRegistry() override;

  // Registering enables and starts the unit, unregistering disables and stops it. After a registration that
  // was refused for want of authorisation the status of a unit that is not enabled is RequiresApproval, until
  // a change succeeds.
  void status(std::string_view propertyList, StatusCompletion completion) override;
  void registerDaemon(std::string_view propertyList, ChangeCompletion completion) override;
  void unregisterDaemon(std::string_view propertyList, ChangeCompletion completion) override;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

// What a state of a unit file ("enabled", "masked", …) says about a daemon. Text that no manager says is
// NotFound.
[[nodiscard]] DaemonStatus daemonStatusOf(std::string_view unitFileState);

}  // namespace monitor::platform
