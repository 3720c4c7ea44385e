// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorCore/Ports/ApplicationBundles.h"
#include "MonitorCore/Ports/SystemInformation.h"

namespace monitor::platform {

// Application bundles by the ".app" folder an executable lies in.
[[nodiscard]] std::shared_ptr<ApplicationBundles> makeApplicationBundles();

[[nodiscard]] std::shared_ptr<SystemInformation> makeSystemInformation();

}  // namespace monitor::platform
