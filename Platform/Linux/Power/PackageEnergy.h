// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Linux/Host/HostFiles.h"

namespace monitor::platform {

// The energy that one processor package has used, in microjoules, as its counter says it.
struct PackageEnergy {
  std::string zone;
  std::uint64_t microjoules = 0;
  std::uint64_t range = 0;  // where the counter begins anew; 0 when the kernel does not say

  friend bool operator==(const PackageEnergy&, const PackageEnergy&) = default;
};

// The packages below the power-capping class, in the order of their zones. Their parts (cores, memory) are in
// them already; the platform zone and the second interface to the same counters are left out. Only root may
// read the counters: without them the list is empty.
[[nodiscard]] std::vector<PackageEnergy> readPackageEnergy(const HostFiles& files);

// The mean power of all packages together over `seconds`. A counter that passed its range once is understood.
// Nothing when there is no package, when one of them went or came, or when a counter was set anew, which
// shows as a power that no package has.
[[nodiscard]] std::optional<double> packageWatts(const std::vector<PackageEnergy>& before,
                                                 const std::vector<PackageEnergy>& after, double seconds);

}  // namespace monitor::platform
