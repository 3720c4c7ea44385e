// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "MonitorCore/Date.h"
#include "MonitorCore/HistoryPoint.h"
#include "MonitorCore/Metrics.h"
#include "Tools/vesk/TimeZone.h"

// The arithmetic of the history plot.
namespace monitor::vesk {

// The values an axis covers, and where its lines are, lowest first.
struct ValueAxis {
  double low = 0.0;
  double high = 1.0;
  std::vector<double> ticks;
};

// Covers all means and peaks in at most `maxTicks` round steps of the unit (bytes in powers of two). Begins
// at zero, except for temperatures, or where values are negative. Values that are not finite do not count.
[[nodiscard]] ValueAxis valueAxis(const std::vector<HistoryPoint>& points, MetricUnit unit,
                                  std::size_t maxTicks);

struct TimeTick {
  Date moment;
  std::string label;   // "14:30", or the date where a step is a day or more
  std::string second;  // the date below the first tick and below every midnight, else empty
};

// Round moments of the zone's clocks within [from, through], at most `maxTicks`.
[[nodiscard]] std::vector<TimeTick> timeTicks(Date from, Date through, const TimeZone& zone,
                                              std::size_t maxTicks);

// Points of one resolution whose buckets follow each other without a gap.
struct HistoryRun {
  std::size_t first = 0;
  std::size_t count = 0;
};
// `points` ordered by date.
[[nodiscard]] std::vector<HistoryRun> contiguousRuns(const std::vector<HistoryPoint>& points);

}  // namespace monitor::vesk
