// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/Metrics.h"
#include "MonitorCore/ProcessSample.h"

namespace monitor {

// The sums over one app's processes in one sample. In memory only. An absent sum means that no member
// reported the figure, which is not the same as 0.
struct AppUsage {
  std::string id;  // bundle identifier, or fallbackIdentity() of its one process
  std::string name;
  std::optional<std::string> bundleID;
  std::vector<ProcessSample> processes;
  std::optional<double> cpu;        // percent of one core
  std::uint64_t memory = 0;         // bytes
  std::optional<double> diskRead;   // bytes per second
  std::optional<double> diskWrite;  // bytes per second
  std::optional<double> download;   // bytes per second
  std::optional<double> upload;     // bytes per second
  std::optional<double> energy;     // energy impact score

  // The figure of one of the seven per-app metrics (Cpu, MemoryUsed, DiskRead, DiskWrite, Download, Upload,
  // EnergyImpact); nothing for every other metric. MemoryUsed is never absent.
  [[nodiscard]] std::optional<double> value(MetricID metric) const;

  friend bool operator==(const AppUsage&, const AppUsage&) = default;
};

}  // namespace monitor
