// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "MonitorCore/Date.h"

namespace monitor {

// One bucket of a metric's history.
struct HistoryPoint {
  Date date;                    // start of the bucket
  double value = 0.0;           // time-weighted mean over the covered part, in the metric's unit
  double peak = 0.0;            // largest single value seen in the bucket
  double coverage = 0.0;        // seconds of the bucket that samples covered, above zero
  std::int64_t resolution = 0;  // length of the bucket in seconds: 60, or 900 once rolled up

  // Bucket start in seconds since 1970 (shortest decimal that reads back as the same number, always with a
  // fractional part), a colon, the resolution: "1731700800.0:60".
  [[nodiscard]] std::string id() const;

  friend bool operator==(const HistoryPoint&, const HistoryPoint&) = default;
};

}  // namespace monitor
