// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/ProcessSample.h"

namespace monitor {

// The processes under one or more listening processes (a development server, for instance) that share a
// working folder.
struct MonitorProject {
  std::string id;                     // the roots' shared folder, or fallbackIdentity() of a root without one
  std::optional<std::string> folder;  // working folder of the first root
  std::vector<ProcessSample> roots;   // in input order
  std::vector<ProcessSample> processes;  // everything that descends from a root, the roots included, by pid

  friend bool operator==(const MonitorProject&, const MonitorProject&) = default;
};

namespace ProjectGrouper {

// The projects among one sample's processes, by id. A listening process that descends from another listening
// one belongs to the outer one's project. Time grows with the number of processes, not with how deep they
// nest; processes that share a pid with an earlier one cost a walk up each. Pure; any thread.
[[nodiscard]] std::vector<MonitorProject> groups(const std::vector<ProcessSample>& processes);

}  // namespace ProjectGrouper

}  // namespace monitor
