// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

#include "MonitorCore/AdvancedDetails.h"
#include "MonitorCore/AdvancedSample.h"
#include "MonitorCore/Ports/ProcessTable.h"
#include "MonitorCore/Ports/Time.h"
#include "MonitorMac/Ports/ToolRunner.h"

namespace monitor {

// Gathers the readings that only root may take by running the power-metrics tool once. For the privileged
// helper.
class AdvancedCollector {
 public:
  struct Ports {
    ToolRunner& runner;
    ProcessTable& processes;
    const WallClock& wallClock;
    std::string_view tool;  // path of the power-metrics tool, a constant of the platform
    const AdvancedDetails& details = kMacAdvancedDetails;  // likewise
  };

  // The tool of macOS.
  static constexpr std::string_view kMacTool = "/usr/bin/powermetrics";

  // One sample over one second, its per-process figures attributed to processes of the user `owner` that
  // lived through the whole run. Blocks for up to about ten seconds.
  //
  // Throws MonitorError: the platform's error when the tool cannot be started, Monitor/1 when a run failed,
  // Cocoa/263 when it printed more than 8 MiB, and what the parser throws.
  [[nodiscard]] static AdvancedSample sample(const Ports& ports, std::uint32_t owner);
};

}  // namespace monitor
