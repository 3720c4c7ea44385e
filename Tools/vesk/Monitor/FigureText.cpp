// SPDX-License-Identifier: MIT
#include "Tools/vesk/Monitor/FigureText.h"

#include <fmt/format.h>

#include "Tools/vesk/History/MetricText.h"

namespace monitor::vesk {

std::string figureText(const std::optional<double>& value) {
  return value ? fmt::format("{:.1f}", *value) : "-";
}

std::string bytesText(const std::optional<double>& bytes) {
  return bytes ? valueText(*bytes, MetricUnit::Bytes) : "-";
}

std::string readingText(const MetricReading& reading) {
  switch (reading.state) {
    case MetricState::Available:
      return reading.value ? valueText(*reading.value, reading.unit) : "-";
    case MetricState::WarmingUp:
      return "warming up";
    case MetricState::Stale:
      return "out of date";
    case MetricState::Unsupported:
      return "not reported";
    case MetricState::PermissionRequired:
      return "not permitted";
  }
  return "-";
}

}  // namespace monitor::vesk
