// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/SensorChips.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace monitor::platform {
namespace {

constexpr double kMilli = 1e-3;
constexpr double kColdest = -20.0;
constexpr double kHottest = 150.0;
constexpr double kFastestFan = 20'000.0;

// Drivers of processor temperatures. The last ones are thermal zones, asked only where no driver answers.
constexpr std::array<std::string_view, 6> kProcessorDrivers{"coretemp",    "k10temp",     "zenpower",
                                                            "via_cputemp", "cpu_thermal", "soc_thermal"};
constexpr std::array<std::string_view, 5> kProcessorZones{"x86_pkg_temp", "cpu-thermal", "cpu_thermal",
                                                          "soc-thermal", "soc_thermal"};
constexpr std::array<std::string_view, 5> kGraphicsDrivers{"amdgpu", "radeon", "nouveau", "i915", "xe"};
// The sensor of a graphics card's die, best first; those of its memory and its regulators are none.
constexpr std::array<std::string_view, 4> kDieLabels{"edge", "pkg", "", "junction"};

template <std::size_t Count>
bool isOneOf(const std::array<std::string_view, Count>& list, std::string_view text) {
  return std::find(list.begin(), list.end(), text) != list.end();
}

bool isAsleep(const HostFiles& files, const std::string& device) {
  return files.line(device + "/power/runtime_status") == "suspended";
}

// "temp3" of "temp3_input".
std::optional<std::string> sensorName(std::string_view file, std::string_view kind) {
  constexpr std::string_view kSuffix = "_input";
  if (!file.starts_with(kind) || !file.ends_with(kSuffix)) return std::nullopt;
  const std::string_view sensor = file.substr(0, file.size() - kSuffix.size());
  if (!unsignedNumber(sensor.substr(std::min(kind.size(), sensor.size())))) return std::nullopt;
  return std::string(sensor);
}

std::optional<double> reading(const HostFiles& files, const std::string& sensor) {
  if (files.line(sensor + "_fault") == "1" || files.line(sensor + "_enable") == "0") return std::nullopt;
  return files.number(sensor + "_input");
}

std::optional<double> celsius(std::optional<double> millidegrees) {
  if (!millidegrees) return std::nullopt;
  const double value = *millidegrees * kMilli;
  return value >= kColdest && value <= kHottest ? std::optional(value) : std::nullopt;
}

SensorChip readChip(const HostFiles& files, const std::string& folder) {
  SensorChip chip;
  chip.name = files.line(folder + "/name").value_or("");
  // Others are not looked at: the sensor of a disk, for one, may wake it.
  const bool wanted = isOneOf(kProcessorDrivers, chip.name) || isOneOf(kGraphicsDrivers, chip.name);
  for (const std::string& file : files.names(folder)) {
    if (const auto sensor = sensorName(file, "temp")) {
      if (!wanted) continue;
      const std::string path = folder + '/' + *sensor;
      if (const auto value = celsius(reading(files, path)))
        chip.temperatures.push_back({files.line(path + "_label").value_or(""), *value});
    } else if (const auto fan = sensorName(file, "fan")) {
      const auto speed = reading(files, folder + '/' + *fan);
      if (speed && *speed >= 0.0 && *speed <= kFastestFan) chip.fans.push_back(*speed);
    }
  }
  return chip;
}

void addThermalZones(const HostFiles& files, std::vector<SensorChip>& chips) {
  constexpr std::string_view kClass = "sys/class/thermal/";
  for (const std::string& name : files.names(kClass)) {
    if (!name.starts_with("thermal_zone")) continue;
    const std::string folder = std::string(kClass) + name;
    const std::string type = files.line(folder + "/type").value_or("");
    if (!isOneOf(kProcessorZones, type)) continue;
    if (const auto value = celsius(files.number(folder + "/temp")))
      chips.push_back({type, {{"", *value}}, {}});
  }
}

void keepHotter(std::optional<double>& hottest, double value) {
  hottest = std::max(hottest.value_or(value), value);
}

std::optional<double> hottestOf(const SensorChip& chip, bool packageOnly) {
  std::optional<double> hottest;
  for (const auto& [label, value] : chip.temperatures) {
    if (!packageOnly || label.starts_with("Package id") || label == "Tdie") keepHotter(hottest, value);
  }
  return hottest;
}

// The package of a chip, where its driver has one; else all that it shows. A chip's "Tctl" may lie above the
// real temperature by a constant; where that is so, the driver has "Tdie" too.
std::optional<double> packageTemperature(const SensorChip& chip) {
  const auto package = hottestOf(chip, true);
  return package ? package : hottestOf(chip, false);
}

template <std::size_t Count>
std::optional<double> hottestProcessor(const std::vector<SensorChip>& chips,
                                       const std::array<std::string_view, Count>& names) {
  std::optional<double> hottest;
  for (const SensorChip& chip : chips) {
    const auto value = isOneOf(names, chip.name) ? packageTemperature(chip) : std::nullopt;
    if (value) keepHotter(hottest, *value);
  }
  return hottest;
}

std::optional<double> dieTemperature(const SensorChip& chip) {
  for (const std::string_view label : kDieLabels) {
    const auto found = std::find_if(chip.temperatures.begin(), chip.temperatures.end(),
                                    [&](const auto& temperature) { return temperature.label == label; });
    if (found != chip.temperatures.end()) return found->celsius;
  }
  return std::nullopt;
}

}  // namespace

std::vector<SensorChip> readSensorChips(const HostFiles& files) {
  constexpr std::string_view kClass = "sys/class/hwmon/";
  std::vector<SensorChip> chips;
  for (const std::string& name : files.names(kClass)) {
    const std::string folder = std::string(kClass) + name;
    if (!isAsleep(files, folder + "/device")) chips.push_back(readChip(files, folder));
  }
  addThermalZones(files, chips);
  return chips;
}

std::optional<double> cpuTemperature(const std::vector<SensorChip>& chips) {
  const auto driver = hottestProcessor(chips, kProcessorDrivers);
  return driver ? driver : hottestProcessor(chips, kProcessorZones);
}

std::optional<double> gpuTemperature(const std::vector<SensorChip>& chips) {
  std::optional<double> hottest;
  for (const SensorChip& chip : chips) {
    const auto value = isOneOf(kGraphicsDrivers, chip.name) ? dieTemperature(chip) : std::nullopt;
    if (value) keepHotter(hottest, *value);
  }
  return hottest;
}

std::vector<double> fanSpeeds(const std::vector<SensorChip>& chips) {
  std::vector<double> speeds;
  for (const SensorChip& chip : chips) speeds.insert(speeds.end(), chip.fans.begin(), chip.fans.end());
  return speeds;
}

}  // namespace monitor::platform
