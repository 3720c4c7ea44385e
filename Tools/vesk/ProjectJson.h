// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/ProjectActivityTracker.h"
#include "MonitorCore/ProjectGrouper.h"

namespace monitor::vesk {

// [{"pid", "start", "name", "idleSeconds" (where `idle` has it)}]. `idle` may be null.
[[nodiscard]] json::Writer processNames(const std::vector<ProcessSample>& processes,
                                        const ProjectActivityTracker::Seconds* idle = nullptr);

// [{"id", "folder" (when known), "roots", "processes"}], the two lists as above.
[[nodiscard]] json::Writer projectsJson(const std::vector<MonitorProject>& projects,
                                        const ProjectActivityTracker::Seconds* idle = nullptr);

}  // namespace monitor::vesk
