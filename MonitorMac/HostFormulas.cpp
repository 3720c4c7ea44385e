// SPDX-License-Identifier: MIT
#include "MonitorMac/HostFormulas.h"

#include <algorithm>

namespace monitor {

std::optional<CpuShares> cpuShares(const CpuTicks& previous, const CpuTicks& current) {
  if (current.user < previous.user || current.system < previous.system || current.idle < previous.idle ||
      current.nice < previous.nice) {
    return std::nullopt;
  }
  const std::uint64_t user = current.user - previous.user;
  const std::uint64_t system = current.system - previous.system;
  const std::uint64_t idle = current.idle - previous.idle;
  const std::uint64_t nice = current.nice - previous.nice;
  const std::uint64_t total = user + system + idle + nice;
  if (total == 0) return std::nullopt;
  const auto percent = [total](std::uint64_t ticks) {
    return static_cast<double>(ticks) * 100.0 / static_cast<double>(total);
  };
  return CpuShares{percent(total - idle), percent(user + nice), percent(system), percent(idle)};
}

std::uint64_t machUsedMemory(const MachPageCounts& pages, std::uint64_t pageSize, std::uint64_t physical) {
  const auto signedCount = [](std::uint64_t count) { return static_cast<std::int64_t>(count); };
  const std::int64_t used = signedCount(pages.internalPages) + signedCount(pages.wired) +
                            signedCount(pages.compressor) - signedCount(pages.purgeable);
  return std::min(physical, static_cast<std::uint64_t>(std::max<std::int64_t>(used, 0)) * pageSize);
}

double pressureFromLevel(std::int32_t level) {
  if (level >= 4) return 2.0;
  return level >= 2 ? 1.0 : 0.0;
}

std::optional<double> batteryPercent(const PowerSource& source) {
  if (!source.currentCapacity || !source.maximumCapacity || !(*source.maximumCapacity > 0))
    return std::nullopt;
  return *source.currentCapacity / *source.maximumCapacity * 100.0;
}

std::optional<double> batteryHealth(const BatteryWear& wear) {
  constexpr double kSmallestCapacity = 100.0;
  if (!wear.fullCapacity || !wear.designCapacity) return std::nullopt;
  if (!(*wear.fullCapacity > kSmallestCapacity) || !(*wear.designCapacity > kSmallestCapacity))
    return std::nullopt;
  return std::min(*wear.fullCapacity / *wear.designCapacity * 100.0, 100.0);
}

double cpuPercent(double unitsPerSecond, double unitNanoseconds) {
  // Nanoseconds a second, divided by a hundredth of a second's nanoseconds.
  return unitsPerSecond * unitNanoseconds / 10'000'000.0;
}

double machTimeUnitNanoseconds(std::uint32_t numerator, std::uint32_t denominator) {
  return denominator == 0 ? 1.0 : static_cast<double>(numerator) / static_cast<double>(denominator);
}

}  // namespace monitor
