// SPDX-License-Identifier: MIT
#include "MonitorCore/CounterRate.h"

#include <cmath>

namespace monitor {

std::optional<double> CounterRate::sample(std::uint64_t total, double uptime) {
  const std::optional<Reading> before = previous_;
  previous_ = Reading{total, uptime};
  if (!before || !std::isfinite(uptime)) return std::nullopt;
  // A remembered NaN fails both comparisons; an infinity fails one of them.
  const double elapsed = uptime - before->uptime;
  if (total < before->total || !(before->uptime < uptime) || !(elapsed <= kLongestInterval))
    return std::nullopt;
  return static_cast<double>(total - before->total) / elapsed;
}

}  // namespace monitor
