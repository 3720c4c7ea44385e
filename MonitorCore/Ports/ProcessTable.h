// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace monitor {

// What the kernel says of one process at one moment.
struct ProcessRecord {
  std::uint64_t startSeconds = 0;       // start time, whole seconds since 1970 …
  std::uint64_t startMicroseconds = 0;  // … and microseconds
  std::uint32_t parent = 0;
  std::uint32_t owner = 0;  // user id
};

// Ever-growing counters of one process.
struct ProcessUsage {
  std::uint64_t cpuTime = 0;                 // user + system, in units of cpuTimeUnitNanoseconds()
  std::uint64_t memory = 0;                  // footprint in bytes
  std::optional<std::uint64_t> diskRead;     // bytes; absent where the kernel refuses
  std::optional<std::uint64_t> diskWritten;  // bytes
};

// The kernel's process table. Reads are synchronous; a process that ended, or may not be read, is absent. One
// caller at a time unless the adapter says otherwise.
class ProcessTable {
 public:
  virtual ~ProcessTable() = default;
  [[nodiscard]] virtual std::vector<std::int32_t> allPids() = 0;
  [[nodiscard]] virtual std::optional<ProcessRecord> record(std::int32_t pid) = 0;
  // Raw bytes of the executable's path (at most 4096, up to the first NUL); empty when unknown.
  [[nodiscard]] virtual std::string executablePath(std::int32_t pid) = 0;
  [[nodiscard]] virtual std::optional<ProcessUsage> usage(std::int32_t pid) = 0;
  // Nanoseconds of one unit of ProcessUsage::cpuTime.
  [[nodiscard]] virtual double cpuTimeUnitNanoseconds() const = 0;
  // Distinct listening TCP ports, ascending.
  [[nodiscard]] virtual std::vector<std::int64_t> listeningPorts(std::int32_t pid) = 0;
  [[nodiscard]] virtual std::optional<std::string> workingDirectory(std::int32_t pid) = 0;
  // Whether the process may be another program, or belong to another application, than it did before the last
  // allPids(). A table that does not keep track says yes.
  [[nodiscard]] virtual bool mayHaveNewIdentity([[maybe_unused]] std::int32_t pid) { return true; }
};

}  // namespace monitor
