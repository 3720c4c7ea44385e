// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

#include "MonitorCore/Date.h"

namespace monitor {

// Timed state must not bridge a gap in the samples: true when `date` lies more than 90 seconds after
// `previous` or before it.
[[nodiscard]] inline bool breaksRun(std::optional<Date> previous, Date date) {
  constexpr double kLongestGap = 90.0;  // seconds
  if (!previous) return false;
  const double elapsed = date.secondsSince(*previous);
  return elapsed > kLongestGap || elapsed < 0.0;
}

}  // namespace monitor
