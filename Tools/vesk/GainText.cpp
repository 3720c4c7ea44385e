// SPDX-License-Identifier: MIT
#include "Tools/vesk/GainText.h"

#include <fmt/format.h>

#include <cmath>
#include <optional>

#include "Tools/vesk/DecimalNumber.h"
#include "Tools/vesk/ExitCode.h"
#include "Tools/vesk/TextWidth.h"

namespace monitor::vesk {
namespace {

constexpr const char* kExpected =
    "Write a gain from 0 to 1 (0.4), from 0% to 100% (40%), or in decibels (-8dB).";

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

enum class Unit { Linear, Percent, Decibel };

std::optional<Unit> unitOf(std::string_view text) {
  if (text.empty()) return Unit::Linear;
  if (text == "%") return Unit::Percent;
  const bool decibel =
      text.size() == 2 && (text[0] == 'd' || text[0] == 'D') && (text[1] == 'b' || text[1] == 'B');
  if (decibel) return Unit::Decibel;
  return std::nullopt;
}

struct Quantity {
  double number = 0.0;
  Unit unit = Unit::Linear;
};

// Nothing where `text` is not a finite decimal number followed by one of the units.
std::optional<Quantity> quantityOf(std::string_view text) {
  std::string_view rest = trimmed(text);
  if (rest.size() > 1 && rest[0] == '+' && rest[1] != '-') rest.remove_prefix(1);
  const auto number = takeDecimal(rest);
  const auto unit = unitOf(trimmed(rest));
  if (!number || !unit) return std::nullopt;
  return Quantity{*number, *unit};
}

double gainOf(const Quantity& quantity) {
  switch (quantity.unit) {
    case Unit::Linear:
      return quantity.number;
    case Unit::Percent:
      return quantity.number / 100.0;
    case Unit::Decibel:
      return std::pow(10.0, quantity.number / 20.0);
  }
  return quantity.number;
}

bool isInRange(double gain) {
  return gain >= 0.0 && gain <= 1.0;
}

[[noreturn]] void refuse(std::string_view text, const std::string& problem) {
  throw CommandError(ExitCode::Usage, fmt::format("\"{}\" {}", printable(text), problem));
}

[[noreturn]] void refuseUnreadable(std::string_view text) {
  std::string withPoint(text);
  const std::size_t comma = withPoint.find(',');
  if (comma != std::string::npos) {
    withPoint[comma] = '.';
    if (quantityOf(withPoint))
      refuse(text, fmt::format("has a comma. Write it with a point: {}", trimmed(withPoint)));
  }
  refuse(text, fmt::format("is not a gain. {}", kExpected));
}

[[noreturn]] void refuseOutOfRange(std::string_view text, const Quantity& quantity) {
  // A bare number out of range is most often one whose unit was forgotten.
  if (quantity.unit == Unit::Linear && quantity.number > 1.0 && quantity.number <= 100.0) {
    refuse(text, fmt::format("is above 1. Did you mean {}%?", quantity.number));
  }
  if (quantity.unit == Unit::Linear && quantity.number < 0.0) {
    refuse(text, fmt::format("is below 0. Did you mean {}dB?", quantity.number));
  }
  const bool above = gainOf(quantity) > 1.0;
  refuse(text, fmt::format("is {}. {}", above ? "louder than normal playback" : "below 0", kExpected));
}

}  // namespace

double parseGain(std::string_view text) {
  const auto quantity = quantityOf(text);
  if (!quantity) refuseUnreadable(text);
  const double gain = gainOf(*quantity);
  if (!isInRange(gain)) refuseOutOfRange(text, *quantity);
  return gain + 0.0;  // turns -0.0 into 0.0
}

std::string percentText(double gain) {
  const double percent = gain * 100.0;
  const double rounded = std::round(percent * 10.0) / 10.0;
  if (gain > 0.0 && rounded == 0.0) return "<0.1 %";
  if (gain < 1.0 && rounded == 100.0) return ">99.9 %";
  return fmt::format("{} %", rounded);
}

std::string decibelText(double gain) {
  if (gain <= 0.0) return "silent";
  return fmt::format("{:.1f} dB", 20.0 * std::log10(gain) + 0.0);
}

}  // namespace monitor::vesk
