// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

namespace monitor::bench {

struct Quartiles {
  double first = 0.0;
  double median = 0.0;
  double third = 0.0;
};

// Quartiles by linear interpolation between neighbours. `values` must not be empty; their order does not
// matter.
[[nodiscard]] Quartiles quartilesOf(std::vector<double> values);

}  // namespace monitor::bench
