// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorCore/Ports/SystemInformation.h"

namespace monitor::platform {

// This process and its user. Never a Mac and never inside a bundle; the folder for application data is the
// base directory rules'.
[[nodiscard]] std::shared_ptr<SystemInformation> makeSystemInformation();

}  // namespace monitor::platform
