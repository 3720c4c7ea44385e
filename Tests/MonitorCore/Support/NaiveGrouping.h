// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "MonitorCore/AppUsage.h"
#include "MonitorCore/ProjectGrouper.h"

// Grouping step by step and without any cleverness: every walk is taken for every process, every sum is its
// own loop. What the real grouping is compared with.
namespace monitor::testing {

[[nodiscard]] std::vector<AppUsage> naiveApps(const std::vector<ProcessSample>& processes);
[[nodiscard]] std::vector<MonitorProject> naiveProjects(const std::vector<ProcessSample>& processes);

}  // namespace monitor::testing
