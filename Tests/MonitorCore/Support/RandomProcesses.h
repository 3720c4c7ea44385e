// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "MonitorCore/ProcessSample.h"

namespace monitor::testing {

// How many rounds a random test takes: `usual`, and twenty times as many when VESK_LONG is set.
[[nodiscard]] int rounds(int usual);

// A stream of choices that is the same on every platform for one seed.
class Chance {
 public:
  explicit Chance(std::uint64_t seed) : engine_(seed) {}

  std::uint64_t bits() { return engine_(); }
  // 0 … count - 1.
  std::uint64_t below(std::uint64_t count) { return engine_() % count; }
  bool oneIn(std::uint64_t count) { return below(count) == 0; }
  template <class Value>
  const Value& of(const std::vector<Value>& values) {
    return values[static_cast<std::size_t>(below(values.size()))];
  }

 private:
  std::mt19937_64 engine_;
};

// Absent, NaN, the infinities, zeros, negative, tiny, ordinary and huge numbers.
[[nodiscard]] std::optional<double> anyFigure(Chance& chance);

// Up to `most` processes from few pids, start times, owners, bundles and folders: repeated pids and keys,
// cycles, reused pids and foreign parents are all common.
[[nodiscard]] std::vector<ProcessSample> anyProcesses(Chance& chance, std::uint64_t most);

// A chain of `depth` processes of one user under one with the bundle "com.example.root".
[[nodiscard]] std::vector<ProcessSample> processChain(std::size_t depth);

}  // namespace monitor::testing
