// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "MonitorCore/HistoryPoint.h"
#include "MonitorCore/MonitorHistoryStore.h"
#include "Tools/vesk/Terminal.h"
#include "Tools/vesk/TimeZone.h"

// History as text. Every result ends with a line feed.
namespace monitor::vesk {

[[nodiscard]] std::string pointsTable(const std::vector<HistoryPoint>& points, MetricID metric,
                                      const TimeZone& zone, const Terminal& terminal);
// "time,seconds,mean,peak,coverage,resolution": local time with its offset, seconds since 1970, numbers in
// full.
[[nodiscard]] std::string pointsCsv(const std::vector<HistoryPoint>& points, const TimeZone& zone);
// An array of objects with id, date (seconds since 2001), time, value, peak, coverage and resolution. A value
// that is not finite is left out.
[[nodiscard]] std::string pointsJson(const std::vector<HistoryPoint>& points, const TimeZone& zone);

[[nodiscard]] std::string coverageText(const HistoryCoverage& coverage, const TimeZone& zone);
// An object with start and end (seconds since 2001), startTime, endTime, which are left out when empty, and
// bytes.
[[nodiscard]] std::string coverageJson(const HistoryCoverage& coverage, const TimeZone& zone);

}  // namespace monitor::vesk
