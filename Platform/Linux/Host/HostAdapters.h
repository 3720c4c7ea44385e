// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorMac/Ports/HostStatistics.h"

namespace monitor::platform {

// The figures of this machine, as the port of each describes them. The home volume is where HOME says; reads
// the environment.
[[nodiscard]] std::unique_ptr<HostStatistics> makeHostStatistics();
[[nodiscard]] std::unique_ptr<NetworkInterfaces> makeNetworkInterfaces();
[[nodiscard]] std::unique_ptr<BlockStorage> makeBlockStorage();
[[nodiscard]] std::unique_ptr<PowerSources> makePowerSources();
[[nodiscard]] std::unique_ptr<Accessories> makeAccessories();

}  // namespace monitor::platform
