// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace monitor::powermetrics {

struct Options {
  bool help = false;
  // Samplers. All of them when none is named.
  bool tasks = false;
  bool cpuPower = false;
  bool gpuPower = false;
  bool thermal = false;
  bool smc = false;
  bool processNetstats = false;
  bool processEnergy = false;
  std::uint64_t sampleCount = 1;
  std::uint64_t sampleMilliseconds = 1'000;
};

inline constexpr std::uint64_t kMostSamples = 1'000'000;
inline constexpr std::uint64_t kShortestSample = 10;     // milliseconds
inline constexpr std::uint64_t kLongestSample = 90'000;  // longer ones no reader turns into rates

// what() names the argument and says what was expected.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The arguments without the program's name. Throws UsageError.
[[nodiscard]] Options parseOptions(const std::vector<std::string>& arguments);

// What --help prints. Readers of it look for samplers at the beginnings of lines.
[[nodiscard]] std::string helpText();

}  // namespace monitor::powermetrics
