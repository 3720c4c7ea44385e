// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorMac/Ports/DaemonRegistry.h"

namespace monitor::platform {

// Launch daemons inside the application's bundle, registered through the system's service management. The first
// registration usually needs the user's approval in the settings.
[[nodiscard]] std::unique_ptr<DaemonRegistry> makeDaemonRegistry();

}  // namespace monitor::platform
