// SPDX-License-Identifier: MIT
#pragma once

#include "Tools/vesk/Console.h"
#include "Tools/vesk/ExitCode.h"
#include "Tools/vesk/Monitor/MonitorHost.h"

namespace monitor::vesk {

struct SampleOptions {
  bool projects = false;
  bool json = false;
};

// Two passes a second apart, and what the second one found: a line of a recording as JSON, or tables.
ExitCode printSample(const SampleOptions& options, const MonitorHost& host, const Console& console);

}  // namespace monitor::vesk
