// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Benchmarks/Harness/Machine.h"
#include "Benchmarks/Harness/Measure.h"

namespace monitor::bench {

// A duration with three digits and its unit: "48.3 ns", "1.20 ms".
[[nodiscard]] std::string durationText(double seconds);

// The lines above the table, and a table row per result; a row ends in "ok", "MISSED" or "-" where there is
// no bound.
[[nodiscard]] std::string headingText(const Machine& machine, const MeasureOptions& options);
[[nodiscard]] std::string rowText(const Result& result);

// Everything as one JSON document.
[[nodiscard]] std::string jsonText(const Machine& machine, const std::vector<Result>& results);

}  // namespace monitor::bench
