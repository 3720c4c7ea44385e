// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

namespace monitor {

// Turns an ever-growing counter into a rate by remembering its previous reading. Not thread-safe.
class CounterRate {
 public:
  // Longest gap between two readings, in seconds, that is still rated: averaged over a sleep the difference
  // would no longer describe what happens now.
  static constexpr double kLongestInterval = 90.0;

  // Units per second since the previous reading; `uptime` is the monotonic time of this one in seconds.
  // Nothing for the first reading, a counter that went backwards, a time that did not advance, a gap over
  // kLongestInterval or a non-finite time. Every reading is remembered, the unusable ones too, so that one
  // bad reading costs one rate (a non-finite time costs two).
  std::optional<double> sample(std::uint64_t total, double uptime);
  // Forgets the previous reading.
  void reset() { previous_.reset(); }

 private:
  struct Reading {
    std::uint64_t total;
    double uptime;  // seconds
  };
  std::optional<Reading> previous_;
};

}  // namespace monitor
