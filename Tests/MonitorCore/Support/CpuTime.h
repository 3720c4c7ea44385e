// SPDX-License-Identifier: MIT
#pragma once

#include <ctime>

namespace monitor::testing {

// Seconds of processor time that `work` takes in this process: what a busy machine does not stretch.
template <class Work>
double cpuSeconds(Work work) {
  const std::clock_t begin = std::clock();
  work();
  return static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
}

}  // namespace monitor::testing
