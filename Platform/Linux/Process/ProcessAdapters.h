// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorCore/Ports/ApplicationBundles.h"
#include "MonitorCore/Ports/ProcessTable.h"

namespace monitor::platform {

// The processes of this machine. All tables of a program share one boot time, so that they agree on every
// process's start. Thread-safe.
[[nodiscard]] std::shared_ptr<ProcessTable> makeProcessTable();

// The applications of this desktop, for the user and the language of this process. Reads the environment.
// Thread-safe.
[[nodiscard]] std::shared_ptr<ApplicationBundles> makeApplicationBundles();

}  // namespace monitor::platform
