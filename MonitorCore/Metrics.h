// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

// The closed vocabulary of measurements. The raw-value texts are a wire and storage format (JSON, history
// database): they never change, and unknown text is rejected rather than mapped to a default.
namespace monitor {

// What is measured. The declaration order is the order in which metrics are listed everywhere.
enum class MetricID : std::uint8_t {
  Cpu,
  CpuUser,
  CpuSystem,
  CpuIdle,
  MemoryUsed,
  MemoryTotal,
  MemoryPressure,
  MemoryWired,
  MemoryCompressed,
  DiskFree,
  DiskTotal,
  DiskRead,
  DiskWrite,
  Download,
  Upload,
  Battery,
  BatteryHealth,
  BatteryMinutes,
  Gpu,
  GpuMemory,
  CpuTemperature,
  GpuTemperature,
  FanRPM,
  PowerWatts,
  EnergyImpact,
};

// The unit a value is given in.
enum class MetricUnit : std::uint8_t {
  Percent,
  Bytes,
  BytesPerSecond,
  Minutes,
  Celsius,
  Rpm,
  Watts,
  Level,
  Score,
};

// How far a value can be trusted. Only Available counts as usable anywhere.
enum class MetricState : std::uint8_t {
  Available,           // shown, stored and evaluated
  WarmingUp,           // the sampler has no usable value yet
  Stale,               // out of date
  Unsupported,         // the machine does not report this metric
  PermissionRequired,  // needs a permission that is not granted
};

inline constexpr std::size_t kMetricCount = 25;

// Every metric, in declaration order.
inline constexpr std::array<MetricID, kMetricCount> kAllMetrics = [] {
  std::array<MetricID, kMetricCount> all{};
  for (std::size_t index = 0; index < kMetricCount; ++index) all[index] = static_cast<MetricID>(index);
  return all;
}();
static_assert(kAllMetrics.back() == MetricID::EnergyImpact);

// The raw value: the case name with a small first letter, "cpuUser".
[[nodiscard]] std::string_view rawValue(MetricID metric);
[[nodiscard]] std::string_view rawValue(MetricUnit unit);
[[nodiscard]] std::string_view rawValue(MetricState state);

// The case with exactly this raw value (letter case counts), or nothing.
[[nodiscard]] std::optional<MetricID> metricID(std::string_view rawValue);
[[nodiscard]] std::optional<MetricUnit> metricUnit(std::string_view rawValue);
[[nodiscard]] std::optional<MetricState> metricState(std::string_view rawValue);

}  // namespace monitor
