// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/Ports/ProcessTable.h"
#include "Platform/Linux/Process/BootTime.h"
#include "Platform/Linux/Process/ProcessFigures.h"

namespace monitor::platform {

// The processes below /proc, or below a folder of the same form. Thread-safe.
//
// The start of a process is its start in clock ticks since boot plus the boot time, which all tables of a
// program should share. The owner is its effective user id. A process that only waits for its parent is
// absent.
class ProcfsProcessTable final : public ProcessTable {
 public:
  ProcfsProcessTable(std::string root, std::shared_ptr<BootTime> bootTime);

  // Also notes whether the machine has anything in its swap, for the pass that begins with it.
  std::vector<std::int32_t> allPids() override;
  std::optional<ProcessRecord> record(std::int32_t pid) override;
  // Without the mark of an executable that was deleted or replaced since. Where the link cannot be read, the
  // kernel's name of the command: of kernel threads, and of programs that hide what they are.
  std::string executablePath(std::int32_t pid) override;
  // Memory is resident and not shared, and what of it is in the swap. Refused I/O counters leave the two
  // absent.
  std::optional<ProcessUsage> usage(std::int32_t pid) override;
  [[nodiscard]] double cpuTimeUnitNanoseconds() const override;
  // By walking the process's descriptors.
  std::vector<std::int64_t> listeningPorts(std::int32_t pid) override;
  std::optional<std::string> workingDirectory(std::int32_t pid) override;

 private:
  [[nodiscard]] std::string path(std::int32_t pid, const char* name) const;
  [[nodiscard]] bool readSwapUse() const;

  std::string root_;
  std::shared_ptr<BootTime> bootTime_;
  KernelUnits units_;
  std::atomic<bool> swapInUse_{false};
};

}  // namespace monitor::platform
