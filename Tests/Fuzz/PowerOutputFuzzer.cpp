// SPDX-License-Identifier: MIT
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "MonitorCore/AdvancedParser.h"
#include "MonitorCore/MonitorError.h"
#include "MonitorCore/PropertyListGuard.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  try {
    const auto sample =
        monitor::AdvancedParser::parse(bytes, {{7, {7, 1}}, {812, {812, 2}}}, monitor::Date{0});
    for (const auto& [metric, reading] : sample.readings) {
      if (!reading.value || !std::isfinite(*reading.value)) std::abort();
    }
    static_cast<void>(monitor::encodeAdvancedSample(sample));
  } catch (const monitor::MonitorError&) {
  }
  try {
    // What the guard lets through it also accepts itself, unchanged.
    const std::string guarded = monitor::guardPropertyList(bytes);
    if (monitor::guardPropertyList(guarded) != guarded) std::abort();
  } catch (const monitor::MonitorError&) {
  }
  return 0;
}
