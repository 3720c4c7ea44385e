// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "Benchmarks/Harness/Statistics.h"
#include "Benchmarks/Harness/Suite.h"

namespace monitor::bench {

struct MeasureOptions {
  std::size_t pairs = 51;  // at least kFewestPairs
  // How long a sample of repeated work lasts at least. Far shorter than a processor's time slice, so that on
  // a busy machine most pairs are run without being interrupted.
  double sampleSeconds = 0.0001;
};

struct Result {
  std::string subject;
  std::string name;
  std::string unit;             // "" for a ratio, else the unit of a limit
  std::string floor;            // "1.5 × memcpy + memset"; empty for a limit
  Quartiles figure;             // the ratio, or the limit's figure
  double productSeconds = 0.0;  // medians of one run; zero for a limit
  double floorSeconds = 0.0;
  std::size_t samples = 0;
  std::optional<double> bound;

  // A figure's median decides. Without a bound everything is within.
  [[nodiscard]] bool withinBound() const { return !bound.has_value() || figure.median <= *bound; }
};

// Runs product and floors in turn, changing the order from pair to pair. Throws std::invalid_argument for a
// comparison without floors or work, and for fewer than kFewestPairs pairs.
[[nodiscard]] Result measure(const std::string& subject, const Comparison& comparison,
                             const MeasureOptions& options);
[[nodiscard]] Result measure(const std::string& subject, const Limit& limit, const MeasureOptions& options);

}  // namespace monitor::bench
