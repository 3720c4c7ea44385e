// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Platform/Linux/Host/HostFiles.h"

namespace monitor::platform {

// What one sensor chip of the machine shows.
struct SensorChip {
  struct Temperature {
    std::string label;  // empty when the driver names it not
    double celsius = 0.0;
  };
  std::string name;  // the driver's: "coretemp", "amdgpu"
  std::vector<Temperature> temperatures;
  std::vector<double> fans;  // revolutions per minute
};

// The hardware-monitoring class, followed by the processors' thermal zones as chips with one temperature
// each. Temperatures are those of processors and graphics cards alone. Sensors that report a fault, are
// switched off or show what no sensor can, and chips of a device that is asleep, which a look would wake, are
// left out.
[[nodiscard]] std::vector<SensorChip> readSensorChips(const HostFiles& files);

// The hottest processor package; where the driver knows no package, the hottest of its sensors.
[[nodiscard]] std::optional<double> cpuTemperature(const std::vector<SensorChip>& chips);
// The hottest graphics card, each by the sensor of its die.
[[nodiscard]] std::optional<double> gpuTemperature(const std::vector<SensorChip>& chips);
// All fans.
[[nodiscard]] std::vector<double> fanSpeeds(const std::vector<SensorChip>& chips);

}  // namespace monitor::platform
