// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "MonitorMac/Ports/HostStatistics.h"
#include "Platform/Linux/Host/HostFiles.h"

namespace monitor::platform {

// Machine-wide figures from /proc, /sys/block (zram) and statvfs.
class ProcfsHostStatistics final : public HostStatistics {
 public:
  // `homeFolder` is where the home volume is looked for.
  ProcfsHostStatistics(HostFiles files, std::string homeFolder)
      : files_(std::move(files)), homeFolder_(std::move(homeFolder)) {}

  // Guest time is part of user time already; time waited for devices is idle time. No sum ever falls:
  // processors that go offline and the kernel's falling iowait would otherwise look like a wrapped counter.
  [[nodiscard]] std::optional<CpuTicks> cpuTicks() override;
  [[nodiscard]] std::optional<std::uint64_t> physicalMemory() override;
  // Used is what is not available without swapping; wired is what cannot be evicted; compressed is what zswap
  // and zram take in memory, absent where neither is there.
  [[nodiscard]] std::optional<MemoryReport> memory() override;
  // From pressure stall information: 4 when all tasks stalled for 10 % of the last ten seconds, 2 when some
  // did, else 1; absent on kernels without it.
  [[nodiscard]] std::optional<std::int32_t> memoryPressureLevel() override;
  [[nodiscard]] std::optional<VolumeCapacity> homeVolume() override;

 private:
  [[nodiscard]] std::optional<std::uint64_t> compressedMemory(std::string_view meminfo) const;

  HostFiles files_;
  std::string homeFolder_;
  CpuTicks highest_;
};

}  // namespace monitor::platform
