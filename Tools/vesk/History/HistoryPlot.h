// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "MonitorCore/Date.h"
#include "MonitorCore/HistoryPoint.h"
#include "MonitorCore/Metrics.h"
#include "Tools/vesk/TimeZone.h"

namespace monitor::vesk {

struct HistoryPlot {
  MetricID metric = MetricID::Cpu;
  std::string app;  // empty for the machine
  Date from;
  Date through;
  std::vector<HistoryPoint> points;  // ordered by date
};

// Draws mean and peak over time into a PNG file: means as steps as long as their buckets, the peaks as a band
// above them, nothing where nothing was recorded, quarter-hour buckets on a shade of their own. Throws
// CommandError naming the file when it cannot be written.
void writePlot(const HistoryPlot& plot, const TimeZone& zone, const std::filesystem::path& file);

}  // namespace monitor::vesk
