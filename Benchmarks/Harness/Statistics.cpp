// SPDX-License-Identifier: MIT
#include "Benchmarks/Harness/Statistics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>

namespace monitor::bench {

Quartiles quartilesOf(std::vector<double> values) {
  if (values.empty()) throw std::invalid_argument("quartiles of no values");
  std::sort(values.begin(), values.end());
  const auto at = [&values](double share) {
    const double place = share * static_cast<double>(values.size() - 1);
    const auto below = static_cast<std::size_t>(std::floor(place));
    const std::size_t above = std::min(below + 1, values.size() - 1);
    return std::lerp(values[below], values[above], place - std::floor(place));
  };
  return {at(0.25), at(0.5), at(0.75)};
}

}  // namespace monitor::bench
