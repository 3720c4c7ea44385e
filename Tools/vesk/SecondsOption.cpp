// SPDX-License-Identifier: MIT
#include "Tools/vesk/SecondsOption.h"

#include <fmt/format.h>

#include <string>
#include <string_view>

#include "Tools/vesk/DecimalNumber.h"

namespace monitor::vesk {

CLI::Validator secondsWithin(double least, double most) {
  const auto check = [least, most](const std::string& text) -> std::string {
    std::string_view rest = text;
    const auto value = takeDecimal(rest);
    if (value && rest.empty() && *value >= least && *value <= most) return {};
    return fmt::format("\"{}\" is not within {} to {} seconds", text, least, most);
  };
  return CLI::Validator(check, "");
}

}  // namespace monitor::vesk
