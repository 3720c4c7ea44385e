// SPDX-License-Identifier: MIT
#include "Benchmarks/Harness/Machine.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

namespace monitor::bench {

std::string processorNamedBy(const std::string& cpuinfo) {
  std::istringstream lines(cpuinfo);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t colon = line.find(": ");
    if (line.starts_with("model name") && colon != std::string::npos) return line.substr(colon + 2);
  }
  return "unknown processor";
}

Machine describeMachine() {
  std::ifstream file("/proc/cpuinfo");
  const std::string cpuinfo(std::istreambuf_iterator<char>(file), {});
  Machine machine;
  machine.processor = processorNamedBy(cpuinfo);
  machine.processors = std::thread::hardware_concurrency();
#if defined(__clang__)
  machine.compiler = __VERSION__;
#else
  machine.compiler = "GCC " __VERSION__;
#endif
  machine.buildType = VESK_BUILD_TYPE;
  return machine;
}

std::string measuringRefused() {
#if !defined(NDEBUG)
  return "this build has assertions; configure with the release preset";
#elif !defined(__OPTIMIZE__)
  return "this build is not optimised; configure with the release preset";
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return "this build has a sanitizer; configure with the release preset";
#else
  return {};
#endif
}

}  // namespace monitor::bench
