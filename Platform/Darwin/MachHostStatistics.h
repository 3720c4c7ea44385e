// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorMac/Ports/HostStatistics.h"
#include "MonitorMac/Ports/TextOrder.h"

namespace monitor::platform {

// Machine-wide figures over Mach, sysctl, IOKit and SystemConfiguration. They keep nothing between calls.
[[nodiscard]] std::unique_ptr<HostStatistics> makeHostStatistics();
[[nodiscard]] std::unique_ptr<NetworkInterfaces> makeNetworkInterfaces();
[[nodiscard]] std::unique_ptr<BlockStorage> makeBlockStorage();
[[nodiscard]] std::unique_ptr<PowerSources> makePowerSources();
[[nodiscard]] std::unique_ptr<Accessories> makeAccessories();

// The localised standard comparison.
[[nodiscard]] std::unique_ptr<TextOrder> makeTextOrder();

}  // namespace monitor::platform
