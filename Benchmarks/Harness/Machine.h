// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace monitor::bench {

// What a figure is worthless without.
struct Machine {
  std::string processor;
  unsigned processors = 0;
  std::string compiler;
  std::string buildType;
};

[[nodiscard]] Machine describeMachine();

// The model named by a text in the form of /proc/cpuinfo; "unknown processor" when it names none.
[[nodiscard]] std::string processorNamedBy(const std::string& cpuinfo);

// Why this build must not be measured (assertions, a sanitizer, no optimisation); empty when it may.
[[nodiscard]] std::string measuringRefused();

}  // namespace monitor::bench
