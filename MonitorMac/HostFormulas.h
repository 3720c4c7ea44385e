// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

#include "MonitorMac/Ports/HostStatistics.h"

// Arithmetic over raw counters, free of any system call.
namespace monitor {

struct CpuShares {  // percent of all logical processors together
  double total = 0.0;
  double user = 0.0;  // nice time included
  double system = 0.0;
  double idle = 0.0;
};

// The shares between two readings; nothing when a counter went backwards or no time passed.
[[nodiscard]] std::optional<CpuShares> cpuShares(const CpuTicks& previous, const CpuTicks& current);

// Page counts of the Mac's VM statistics, as far as they count as used.
struct MachPageCounts {
  std::uint64_t internalPages = 0;
  std::uint64_t wired = 0;
  std::uint64_t compressor = 0;
  std::uint64_t purgeable = 0;
};

// Internal, wired and compressed pages without the purgeable ones, in bytes: never negative, never above
// `physical`.
[[nodiscard]] std::uint64_t machUsedMemory(const MachPageCounts& pages, std::uint64_t pageSize,
                                           std::uint64_t physical);

// 0 normal, 1 warning, 2 critical.
[[nodiscard]] double pressureFromLevel(std::int32_t level);

// Charge in percent; nothing without both numbers or with a maximum that is not positive.
[[nodiscard]] std::optional<double> batteryPercent(const PowerSource& source);

// Full capacity relative to the designed one, at most 100 %; nothing unless both exceed 100 units, below
// which the numbers are not capacities.
[[nodiscard]] std::optional<double> batteryHealth(const BatteryWear& wear);

// Percent of one core from a rate in CPU-time units a second.
[[nodiscard]] double cpuPercent(double unitsPerSecond, double unitNanoseconds);

// Nanoseconds of one Mach absolute-time unit; 1 when the kernel gives no denominator.
[[nodiscard]] double machTimeUnitNanoseconds(std::uint32_t numerator, std::uint32_t denominator);

}  // namespace monitor
