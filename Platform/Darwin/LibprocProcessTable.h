// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorCore/Ports/ProcessTable.h"

namespace monitor::platform {

// The process table over libproc. A process of another user gives an unprivileged caller its basic record only.
// Thread-safe: it keeps nothing.
[[nodiscard]] std::shared_ptr<ProcessTable> makeProcessTable();

}  // namespace monitor::platform
