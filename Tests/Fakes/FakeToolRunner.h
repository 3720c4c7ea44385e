// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

#include "MonitorMac/Ports/ToolRunner.h"

namespace monitor::fakes {

// Scripted outputs: the n-th run gets the n-th result, later runs the last one. `duringRun` stands for what
// happens in the world while a tool runs.
struct FakeToolRunner final : ToolRunner {
  std::vector<ToolResult> results;
  std::vector<ToolRun> runs;
  std::function<void(const ToolRun&)> duringRun;

  ToolResult run(const ToolRun& run) override {
    runs.push_back(run);
    if (duringRun) duringRun(run);
    return results.at(std::min(runs.size(), results.size()) - 1);
  }
};

}  // namespace monitor::fakes
