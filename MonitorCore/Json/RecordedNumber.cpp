// SPDX-License-Identifier: MIT
#include "MonitorCore/Json/RecordedNumber.h"

#include <cmath>
#include <limits>
#include <string>

namespace monitor::json {

void setRecorded(Writer& object, std::string_view key, double value) {
  if (std::isfinite(value)) {
    object.set(key, value);
  } else {
    object.set(key, std::isnan(value) ? "nan" : value > 0 ? "inf" : "-inf");
  }
}

void setRecorded(Writer& object, std::string_view key, const std::optional<double>& value) {
  if (value) setRecorded(object, key, *value);
}

double recordedNumber(const Reader& value) {
  if (!value.isString()) return value.number();
  const std::string text = value.string();
  if (text == "nan") return std::numeric_limits<double>::quiet_NaN();
  if (text == "inf") return std::numeric_limits<double>::infinity();
  if (text == "-inf") return -std::numeric_limits<double>::infinity();
  value.fail("expected a number, \"nan\", \"inf\" or \"-inf\", found " + value.quoted());
}

std::optional<double> findRecorded(const Reader& object, std::string_view key) {
  const auto value = object.find(key);
  return value ? std::optional(recordedNumber(*value)) : std::nullopt;
}

}  // namespace monitor::json
