// SPDX-License-Identifier: MIT
#include "Tools/vesk/DecimalNumber.h"

#include <algorithm>
#include <locale>
#include <sstream>
#include <string>

namespace monitor::vesk {
namespace {

std::size_t endOfDigits(std::string_view text, std::size_t from) {
  return std::min(text.find_first_not_of("0123456789", from), text.size());
}

bool holdsOneOf(std::string_view text, std::size_t place, std::string_view characters) {
  return place < text.size() && characters.find(text[place]) != std::string_view::npos;
}

// Where the exponent that begins at `from` ends; `from` where there is none.
std::size_t endOfExponent(std::string_view text, std::size_t from) {
  if (!holdsOneOf(text, from, "eE")) return from;
  const std::size_t digits = from + (holdsOneOf(text, from + 1, "+-") ? 2 : 1);
  const std::size_t end = endOfDigits(text, digits);
  return end > digits ? end : from;
}

// The characters of the number that `text` begins with; 0 where it begins with none.
std::size_t lengthOfNumber(std::string_view text) {
  const std::size_t sign = text.starts_with('-') ? 1 : 0;
  const std::size_t point = endOfDigits(text, sign);
  const bool hasPoint = holdsOneOf(text, point, ".");
  const std::size_t end = hasPoint ? endOfDigits(text, point + 1) : point;
  const std::size_t digits = end - sign - (hasPoint ? 1 : 0);
  return digits != 0 ? endOfExponent(text, end) : 0;
}

}  // namespace

std::optional<double> takeDecimal(std::string_view& text) {
  const std::size_t length = lengthOfNumber(text);
  if (length == 0) return std::nullopt;
  std::istringstream stream{std::string(text.substr(0, length))};
  stream.imbue(std::locale::classic());
  double number = 0.0;
  if (!(stream >> number)) return std::nullopt;
  text.remove_prefix(length);
  return number;
}

}  // namespace monitor::vesk
