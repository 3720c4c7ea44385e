// SPDX-License-Identifier: MIT
#pragma once

#include <ctime>

#include <algorithm>
#include <vector>

namespace monitor::benchmark {

struct Cost {
  double cpuMs = 0.0;  // user and system time of the process
  double wallMs = 0.0;
};

inline double milliseconds(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

// What `work` cost this process.
template <class Work>
Cost measured(Work&& work) {
  const double cpu = milliseconds(CLOCK_PROCESS_CPUTIME_ID);
  const double wall = milliseconds(CLOCK_MONOTONIC);
  work();
  return {milliseconds(CLOCK_PROCESS_CPUTIME_ID) - cpu, milliseconds(CLOCK_MONOTONIC) - wall};
}

inline double median(std::vector<double> values) {
  if (values.empty()) return 0.0;
  std::sort(values.begin(), values.end());
  const auto middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

inline double median(const std::vector<Cost>& costs, double Cost::*field) {
  std::vector<double> values;
  for (const Cost& cost : costs) values.push_back(cost.*field);
  return median(values);
}

// The median of the ratios of runs that were made side by side, which a drift of the machine does not move.
inline double medianRatio(const std::vector<Cost>& over, const std::vector<Cost>& under,
                          double Cost::*field) {
  std::vector<double> ratios;
  for (std::size_t index = 0; index < std::min(over.size(), under.size()); ++index) {
    ratios.push_back(over[index].*field / (under[index].*field));
  }
  return median(ratios);
}

}  // namespace monitor::benchmark
