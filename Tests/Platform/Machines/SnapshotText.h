// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "MonitorCore/MonitorSnapshot.h"

namespace monitor::platform {

// A snapshot as lines to compare: everything in it but times of day, and "-" for what is absent.
[[nodiscard]] std::string snapshotText(const MonitorSnapshot& snapshot);

}  // namespace monitor::platform
