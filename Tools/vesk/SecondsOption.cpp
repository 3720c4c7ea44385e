// SPDX-License-Identifier: MIT
#include "Tools/vesk/SecondsOption.h"

#include <fmt/format.h>

#include <charconv>
#include <string>

namespace monitor::vesk {

CLI::Validator secondsWithin(double least, double most) {
  const auto check = [least, most](const std::string& text) -> std::string {
    double value = 0.0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error == std::errc{} && stop == end && value >= least && value <= most) return {};
    return fmt::format("\"{}\" is not within {} to {} seconds", text, least, most);
  };
  return CLI::Validator(check, "");
}

}  // namespace monitor::vesk
