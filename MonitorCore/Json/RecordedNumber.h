// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string_view>

#include "MonitorCore/Json/StrictJson.h"

// Numbers in recordings. A recording keeps what a sampler saw, also what JSON has no number for: those are
// the texts "nan", "inf" and "-inf".
namespace monitor::json {

void setRecorded(Writer& object, std::string_view key, double value);
// Leaves the key out when absent.
void setRecorded(Writer& object, std::string_view key, const std::optional<double>& value);

// A number or one of the three texts.
[[nodiscard]] double recordedNumber(const Reader& value);
// Absent and null give nothing.
[[nodiscard]] std::optional<double> findRecorded(const Reader& object, std::string_view key);

}  // namespace monitor::json
