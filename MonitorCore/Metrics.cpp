// SPDX-License-Identifier: MIT
#include "MonitorCore/Metrics.h"

#include <algorithm>

namespace monitor {
namespace {

// Raw values by declaration order of their enumeration.
constexpr std::array<std::string_view, kMetricCount> kMetricNames{
    "cpu",
    "cpuUser",
    "cpuSystem",
    "cpuIdle",
    "memoryUsed",
    "memoryTotal",
    "memoryPressure",
    "memoryWired",
    "memoryCompressed",
    "diskFree",
    "diskTotal",
    "diskRead",
    "diskWrite",
    "download",
    "upload",
    "battery",
    "batteryHealth",
    "batteryMinutes",
    "gpu",
    "gpuMemory",
    "cpuTemperature",
    "gpuTemperature",
    "fanRPM",
    "powerWatts",
    "energyImpact",
};
constexpr std::array<std::string_view, 9> kUnitNames{
    "percent", "bytes", "bytesPerSecond", "minutes", "celsius", "rpm", "watts", "level", "score",
};
constexpr std::array<std::string_view, 5> kStateNames{
    "available", "warmingUp", "stale", "unsupported", "permissionRequired",
};
static_assert(static_cast<std::size_t>(MetricID::EnergyImpact) + 1 == kMetricNames.size());
static_assert(static_cast<std::size_t>(MetricUnit::Score) + 1 == kUnitNames.size());
static_assert(static_cast<std::size_t>(MetricState::PermissionRequired) + 1 == kStateNames.size());

template <class Case, std::size_t count>
std::optional<Case> caseNamed(const std::array<std::string_view, count>& names, std::string_view name) {
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) return std::nullopt;
  return static_cast<Case>(found - names.begin());
}

}  // namespace

std::string_view rawValue(MetricID metric) {
  return kMetricNames.at(static_cast<std::size_t>(metric));
}
std::string_view rawValue(MetricUnit unit) {
  return kUnitNames.at(static_cast<std::size_t>(unit));
}
std::string_view rawValue(MetricState state) {
  return kStateNames.at(static_cast<std::size_t>(state));
}

std::optional<MetricID> metricID(std::string_view rawValue) {
  return caseNamed<MetricID>(kMetricNames, rawValue);
}
std::optional<MetricUnit> metricUnit(std::string_view rawValue) {
  return caseNamed<MetricUnit>(kUnitNames, rawValue);
}
std::optional<MetricState> metricState(std::string_view rawValue) {
  return caseNamed<MetricState>(kStateNames, rawValue);
}

}  // namespace monitor
