// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "MonitorCore/MonitorError.h"

namespace monitor {

// Whether the helper daemon may be asked.
enum class DaemonStatus : std::uint8_t {
  NotRegistered = 0,
  Enabled = 1,           // the only state in which sampling is attempted
  RequiresApproval = 2,  // registered, but the user has to agree first
  NotFound = 3,
};

// The system's register of daemons. Calls return at once; completions run once, on any thread.
class DaemonRegistry {
 public:
  using StatusCompletion = std::function<void(DaemonStatus status)>;
  // Nothing on success.
  using ChangeCompletion = std::function<void(const std::optional<MonitorError>& error)>;

  virtual ~DaemonRegistry() = default;
  // `propertyList` names the daemon's description, "app.vesk.native.monitor-helper.plist".
  virtual void status(std::string_view propertyList, StatusCompletion completion) = 0;
  virtual void registerDaemon(std::string_view propertyList, ChangeCompletion completion) = 0;
  virtual void unregisterDaemon(std::string_view propertyList, ChangeCompletion completion) = 0;
};

}  // namespace monitor
