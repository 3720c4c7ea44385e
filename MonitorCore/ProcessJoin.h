// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "MonitorCore/AdvancedParser.h"
#include "MonitorCore/AdvancedSample.h"

namespace monitor {

// The readings of a helper under the keys by which the caller knows the same processes; what belongs to none
// of `known` is left out.
//
// A kernel that tells starts since boot makes every program add a boot time of its own, in whole seconds,
// which another program may have read before or after a step of the wall clock. So the starts of two programs
// differ by one constant: the one most processes agree on, 0 and then the smallest winning a tie. A process
// with another difference is not the same one: its pid was taken over. Pure; linear in both.
[[nodiscard]] std::vector<AdvancedProcessReading> underKnownKeys(
    const std::vector<AdvancedProcessReading>& readings, const ProcessIdentities& known);

}  // namespace monitor
