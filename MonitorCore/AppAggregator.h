// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "MonitorCore/AppUsage.h"
#include "MonitorCore/ProcessSample.h"

namespace monitor::AppAggregator {

// Turns one sample's processes into one row per app. A process without a bundle identifier counts toward the
// nearest ancestor of the same user that has one; without such an ancestor it is an app of its own. A row is
// named after the representative of its last member in input order. Sums leave out absent and non-finite
// figures.
//
// Rows come by CPU use, most first (absent below 0), then by id; members by pid. Time grows with the number
// of processes and not with how deep they nest. Pure; any thread.
[[nodiscard]] std::vector<AppUsage> group(std::vector<ProcessSample> processes);
// The same for a caller that takes samples again and again: it leaves `processes` empty and keeps its memory.
[[nodiscard]] std::vector<AppUsage> groupAndClear(std::vector<ProcessSample>& processes);

// The processes of all rows, by pid: what the sample was made of.
[[nodiscard]] std::vector<ProcessSample> processesOf(const std::vector<AppUsage>& apps);

}  // namespace monitor::AppAggregator
