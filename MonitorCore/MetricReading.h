// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "MonitorCore/Date.h"
#include "MonitorCore/Metrics.h"

namespace monitor {

// The `source` of every reading that came from the privileged helper; the history recognises them by this
// text.
inline constexpr std::string_view kPowermetricsSource = "Apple powermetrics";

// One measured value.
struct MetricReading {
  std::optional<double> value;  // in `unit`; absent when not available or when the source gave nothing
  MetricUnit unit;
  std::string source;  // human-readable name of what produced the value
  MetricState state;
  Date timestamp;                     // when the value was measured
  std::optional<std::string> detail;  // explanation for the user

  // Drops a value that is not finite. Without a value an Available state becomes WarmingUp; the other states
  // are kept. A reading that arrives as JSON is not corrected in this way: it is kept as its sender wrote it.
  MetricReading(std::optional<double> value, MetricUnit unit, std::string source, MetricState state,
                Date timestamp, std::optional<std::string> detail);

  friend bool operator==(const MetricReading&, const MetricReading&) = default;
};

// Iterates in declaration order of the metrics.
using MetricReadings = std::map<MetricID, MetricReading>;

}  // namespace monitor
