// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

#include "MonitorCore/MetricReading.h"

// Figures of a snapshot as tables show them. What is absent is "-", never a zero.
namespace monitor::vesk {

// One decimal, "12.5".
[[nodiscard]] std::string figureText(const std::optional<double>& value);
// "1.50 MiB", at most eight cells for anything a machine can hold.
[[nodiscard]] std::string bytesText(const std::optional<double>& bytes);
// The value with its unit, or the reason why there is none: "warming up", "not reported", …
[[nodiscard]] std::string readingText(const MetricReading& reading);

}  // namespace monitor::vesk
