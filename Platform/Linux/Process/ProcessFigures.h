// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "MonitorCore/Ports/ProcessTable.h"
#include "Platform/Linux/Process/ProcessStat.h"

namespace monitor::platform {

// What the texts below /proc/PID say, in the units of the port. Plain functions over texts.

// The units of this kernel's figures.
struct KernelUnits {
  std::uint64_t ticksPerSecond = 100;
  std::uint64_t pageBytes = 4096;
};
[[nodiscard]] KernelUnits kernelUnits();

// The number behind a label at the beginning of a line: "VmSwap:      12 kB".
[[nodiscard]] std::optional<std::uint64_t> numberBehind(std::string_view text, std::string_view label);

// Nothing when the start does not fit into microseconds. `bootSeconds` are seconds since 1970.
[[nodiscard]] std::optional<ProcessRecord> recordOf(const ProcessStat& stat, std::uint32_t owner,
                                                    std::uint64_t bootSeconds, const KernelUnits& units);

// What is resident and not shared, in bytes, from the text of statm; nothing when that makes no sense.
[[nodiscard]] std::optional<std::uint64_t> unsharedBytes(std::string_view statm, const KernelUnits& units);

// The texts a process's counters are read from; those that were refused are absent.
struct UsageTexts {
  std::optional<std::string_view> statm = std::nullopt;
  std::optional<std::string_view> io = std::nullopt;
  std::optional<std::string_view> status = std::nullopt;  // only while the swap is in use
};
// Without statm memory is what is resident, shared pages included; without io the two disk counters are
// absent.
[[nodiscard]] ProcessUsage usageOf(const ProcessStat& stat, const UsageTexts& texts,
                                   const KernelUnits& units);

// Whether anything is in the swap, from the text of /proc/meminfo.
[[nodiscard]] bool isSwapInUse(std::string_view meminfo);

// The target of an exe or cwd link without the mark that the file was deleted or replaced. Of a file that is
// really called like that the link leads to the file itself.
[[nodiscard]] std::string withoutDeletedMark(std::string target, const std::string& link);

}  // namespace monitor::platform
