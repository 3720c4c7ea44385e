// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "MonitorCore/Metrics.h"

// Metrics and their values as people read them.
namespace monitor::vesk {

// The unit in which every producer gives this metric. The history does not store it.
[[nodiscard]] MetricUnit unitOf(MetricID metric);

// "CPU", "Disk reading".
[[nodiscard]] std::string metricTitle(MetricID metric);

// "12.5 %", "1.50 GiB", "340 KiB/s", "warning". Three significant digits.
[[nodiscard]] std::string valueText(double value, MetricUnit unit);
// The same for the round values of an axis, with no more digits than they have: "80 %", "1.5 GiB".
[[nodiscard]] std::string tickText(double value, MetricUnit unit);

}  // namespace monitor::vesk
