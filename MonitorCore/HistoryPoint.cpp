// SPDX-License-Identifier: MIT
#include "MonitorCore/HistoryPoint.h"

#include <array>
#include <charconv>
#include <cmath>

namespace monitor {
namespace {

std::string shortestDecimal(double value) {
  // Fixed notation of the largest double has 309 digits, of the smallest one about 330 characters.
  std::array<char, 400> buffer{};
  const auto end =
      std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::fixed).ptr;
  std::string text(buffer.data(), end);
  if (std::isfinite(value) && text.find('.') == std::string::npos) text += ".0";
  return text;
}

}  // namespace

std::string HistoryPoint::id() const {
  return shortestDecimal(date.secondsSince1970()) + ':' + std::to_string(resolution);
}

}  // namespace monitor
