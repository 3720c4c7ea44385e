// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "MonitorCore/Ports/ProcessTable.h"
#include "MonitorCore/Ports/Time.h"
#include "Platform/Linux/Process/BootTime.h"
#include "Platform/Linux/Process/BoundedFile.h"
#include "Platform/Linux/Process/ListeningPorts.h"
#include "Platform/Linux/Process/ProcFolder.h"
#include "Platform/Linux/Process/ProcessFigures.h"
#include "Platform/Linux/Process/ProcfsProcessTable.h"

namespace monitor::platform {

// The process table of one user, for a sampler that reads all of it again and again. Every answer is the same
// as ProcfsProcessTable's, but most of them need no reading:
//
//   - A process with one thread whose run time and run count in schedstat did not change has not run. Its CPU
//     time, its disk bytes and its descriptors are what they were.
//   - Nothing starts without the last pid in loadavg changing: as long as it does not, the listing is the
//     last one without those that ended.
//
// What can change without either is read again when the process is twice as old as last time, and at least
// every five minutes: the unit it belongs to, and memory that the kernel took from it. Kernels without
// schedstat, or with nothing in it, are read in full.
//
// allPids() begins a pass, and answers hold for that pass. Processes of other users have no record and
// nothing of theirs is opened. One caller at a time.
class SampledProcessTable final : public ProcessTable {
 public:
  struct Settings {
    std::string root = "/proc";
    std::uint32_t owner = 0;
    // Descriptors to keep open at most, one a process. Without one schedstat is opened in every pass.
    std::size_t keptDescriptors = 0;
    ListenerDump listeners = {};  // none: the tables below `root` are read
  };

  SampledProcessTable(Settings settings, std::shared_ptr<BootTime> bootTime,
                      std::shared_ptr<const Clock> uptime);

  std::vector<std::int32_t> allPids() override;
  // A process whose stat is refused has a record with nothing but its owner, and no usage.
  std::optional<ProcessRecord> record(std::int32_t pid) override;
  std::string executablePath(std::int32_t pid) override;
  std::optional<ProcessUsage> usage(std::int32_t pid) override;
  [[nodiscard]] double cpuTimeUnitNanoseconds() const override;
  std::vector<std::int64_t> listeningPorts(std::int32_t pid) override;
  std::optional<std::string> workingDirectory(std::int32_t pid) override;
  bool mayHaveNewIdentity(std::int32_t pid) override;

 private:
  // What the scheduler said of a process, as it said it.
  struct Schedule {
    std::array<char, 72> text{};
    std::size_t size = 0;
  };
  struct Process {
    std::optional<FileDescriptor> schedstat;
    Schedule schedule;        // read before everything else of the pass
    std::uint64_t pass = 0;   // the last one that saw it
    bool read = false;        // what was read of it still holds
    bool newIdentity = true;  // in this pass
    std::int64_t threads = 0;
    std::int32_t terminal = 0;
    std::size_t program = 0;
    std::optional<std::uint64_t> startTicks;  // none: nothing was read yet
    double nextCheck = 0.0;                   // uptime
    ProcessRecord record;
    std::optional<ProcessUsage> usage;
    HeldSockets sockets;
  };
  enum class Activity : std::uint8_t { Idle, Ran, Ended };
  enum class Outcome : std::uint8_t { Read, Ended, Other };  // the last: not the process it was, or not ours

  void beginPass();
  // Reads the last pid, so that it is older than the listing that may follow.
  [[nodiscard]] bool processesMayBeNew();
  void forgetUnlisted();
  // Their parent is another one now, although they did not run.
  void rereadOrphans();
  // Notes what has to be read again of a process.
  void look(std::int32_t pid, Process& process);
  [[nodiscard]] Activity activityOf(std::int32_t pid, Process& process) const;
  [[nodiscard]] Process* find(std::int32_t pid);
  // The process with everything of it read for this pass; none when there is none of this user.
  [[nodiscard]] Process* current(std::int32_t pid);
  [[nodiscard]] Process* admit(std::int32_t pid);
  void watch(std::int32_t pid, Process& process);
  [[nodiscard]] Outcome readAll(std::int32_t pid, Process& process) const;
  [[nodiscard]] Outcome take(std::int32_t pid, Process& process, const ProcessStat& stat) const;
  void unwatch(Process& process);
  void forget(std::int32_t pid);
  [[nodiscard]] double nextCheck(std::int32_t pid, const Process& process) const;

  Settings settings_;
  std::shared_ptr<BootTime> bootTime_;
  std::shared_ptr<const Clock> uptime_;
  KernelUnits units_;
  ProcfsProcessTable plain_;
  ProcFolder proc_;
  ListeningPorts ports_;
  std::unordered_map<std::int32_t, Process> processes_;
  std::vector<std::int32_t> pids_;
  std::vector<std::int32_t> ended_;  // since the last pass began
  std::string lastPid_;              // as loadavg says it
  int quietPasses_ = 0;              // with that last pid
  double lastListing_ = 0.0;         // uptime
  double now_ = 0.0;                 // uptime at the beginning of the pass
  std::uint64_t pass_ = 0;
  std::size_t kept_ = 0;
  bool swapInUse_ = false;
  std::int32_t foundPid_ = 0;  // the process asked for last, which is mostly asked for again
  Process* found_ = nullptr;
};

}  // namespace monitor::platform
