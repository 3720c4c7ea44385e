// SPDX-License-Identifier: MIT
#pragma once

#include "MonitorMac/Ports/ToolRunner.h"

namespace monitor::platform {

// ToolRunner over posix_spawn, a pipe and one waiting thread a run; the same on every platform.
class PosixToolRunner final : public ToolRunner {
 public:
  [[nodiscard]] ToolResult run(const ToolRun& run) override;
};

}  // namespace monitor::platform
