// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

#include "Tools/vesk/Console.h"
#include "Tools/vesk/ExitCode.h"
#include "Tools/vesk/Monitor/MonitorHost.h"

namespace monitor::vesk {

// Seconds between two snapshots. Above 90 s a rate says nothing any more, so the longest stays well below it.
inline constexpr double kLeastInterval = 0.1;
inline constexpr double kMostInterval = 60.0;
inline constexpr double kMostDuration = 31'536'000.0;  // a year

struct RecordOptions {
  std::string file;                // "-" for the standard output; empty with `database`
  std::string database;            // a history instead of a recording
  double every = 2.0;              // kLeastInterval…kMostInterval seconds
  std::optional<double> duration;  // seconds, kLeastInterval…kMostDuration; without it until a signal
  bool projects = false;
};

// Takes a snapshot every so often until the time is over or the pause says so, the last one at the very end.
// The pass before the first interval is not recorded: it has no rates. Throws CommandError that names the
// file; what was recorded before stays.
ExitCode record(const RecordOptions& options, const MonitorHost& host, const Console& console);

}  // namespace monitor::vesk
