// SPDX-License-Identifier: MIT
#pragma once

namespace monitor::platform {

// The power-metrics tool of this system; it lies beside the helper.
inline constexpr const char* kPowerMetricsTool = "vesk-powermetrics";

// Assembles the privileged helper from this system's adapters and runs it until it leaves: its exit status.
// Called once, by main(), before any other thread exists.
[[nodiscard]] int helperMain();

}  // namespace monitor::platform
