// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace monitor {

// What the power-metrics tool's readings say of themselves. One table per platform: the figures mean the
// same, their sources do not. The source text is one everywhere, for the history knows the readings by it.
struct AdvancedDetails {
  std::string_view gpu;
  std::string_view powerWatts;
  std::string_view cpuTemperature;
  std::string_view gpuTemperature;
  std::string_view fanRPM;
};

inline constexpr AdvancedDetails kMacAdvancedDetails{
    .gpu = "GPU active residency reported by macOS",
    .powerWatts = "Estimated CPU, GPU and neural-engine power; not total wall power",
    .cpuTemperature = "CPU die sensor on supported hardware",
    .gpuTemperature = "GPU die sensor on supported hardware",
    .fanRPM = "Fastest reported fan \u00B7 read only",
};

inline constexpr AdvancedDetails kLinuxAdvancedDetails{
    .gpu = "Busiest engine of the busiest graphics card",
    .powerWatts = "Processor packages with their integrated graphics; not total wall power",
    .cpuTemperature = "Hottest processor package",
    .gpuTemperature = "Hottest graphics card",
    .fanRPM = "Fastest reported fan \u00B7 read only",
};

}  // namespace monitor
