// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <memory_resource>
#include <optional>
#include <span>
#include <string>
#include <string_view>
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
//   - A process with one thread that was off the processor and whose run time and run count in schedstat did
//     not change has not run. Its CPU time, its disk bytes and its descriptors are what they were.
//   - Pids are given in order, and loadavg says which was the last. New processes are looked for among those
//     given since, and everything is listed only when they have started over, and every ten seconds.
//
// What can change without either is looked at with time: the unit it belongs to when the process is twice as
// old as last time, and at least every five minutes, then with everything else of it. Kernels without
// schedstat, or with nothing in it, are read in full.
//
// allPids() begins a pass, and answers hold for that pass. Processes of other users have no record and
// nothing of theirs is opened. One caller at a time.
class SampledProcessTable final : public ProcessTable {
 public:
  struct Settings {
    std::string root = "/proc";
    std::uint32_t owner = 0;
    // Descriptors to keep open at most: one a process, for schedstat, and half of them at most for the other
    // files of those that run all the time. What has none is opened for every read.
    std::size_t keptDescriptors = 0;
    ListenerDump listeners = {};  // none: the tables below `root` are read
    KernelUnits units = kernelUnits();
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
  // How long and how often a process ran; nothing where the kernel does not count.
  struct Runs {
    std::uint64_t nanoseconds = 0;
    std::uint64_t count = 0;
    friend bool operator==(const Runs&, const Runs&) = default;
  };
  enum File : std::uint8_t { Stat, Statm, Io, FileCount };
  struct Process {
    std::optional<FileDescriptor> schedstat;
    std::array<std::optional<FileDescriptor>, FileCount> files;
    std::optional<Runs> runs;  // read before everything else of a pass
    unsigned ranPasses = 0;    // in a row
    std::uint64_t pass = 0;    // the last one that saw it
    bool read = false;         // what was read of it still holds
    bool newIdentity = true;   // in this pass
    std::int64_t threads = 0;
    bool running = false;  // on a processor when it was read: the kernel adds up such a run only later
    std::int32_t terminal = 0;
    std::size_t program = 0;
    std::optional<std::uint64_t> startTicks;  // none: nothing was read yet
    std::size_t unit = 0;                     // a mark of its control group
    double nextCheck = 0.0;                   // uptime
    ProcessRecord record;
    std::optional<ProcessUsage> usage;
    HeldSockets sockets;
  };
  enum class Activity : std::uint8_t { Idle, Ran, Ended };
  enum class Outcome : std::uint8_t { Read, Ended, Other };  // the last: not the process it was, or not ours

  void beginPass();
  [[nodiscard]] std::optional<std::int32_t> lastPid() const;
  // False when only a listing can tell which processes are new.
  [[nodiscard]] bool addNewPids(std::optional<std::int32_t> last);
  [[nodiscard]] bool isProcess(std::int32_t pid) const;
  void list();
  void forgetUnlisted();
  // Their parent is another one now, although they did not run.
  void rereadOrphans();
  // Notes what has to be read again of a process.
  void look(std::int32_t pid, Process& process);
  [[nodiscard]] static std::optional<Runs> runsIn(std::string_view schedstat);
  [[nodiscard]] Activity activityOf(std::int32_t pid, Process& process) const;
  [[nodiscard]] Process* find(std::int32_t pid);
  // The process with everything of it read for this pass; none when there is none of this user.
  [[nodiscard]] Process* current(std::int32_t pid);
  [[nodiscard]] Process* admit(std::int32_t pid);
  void watch(std::int32_t pid, Process& process);
  void keepFiles(std::int32_t pid, Process& process);
  [[nodiscard]] std::optional<std::string_view> read(std::int32_t pid, const Process& process, File file,
                                                     std::span<char> buffer) const;
  [[nodiscard]] Outcome readAll(std::int32_t pid, Process& process) const;
  [[nodiscard]] Outcome take(std::int32_t pid, Process& process, const ProcessStat& stat) const;
  void drop(std::optional<FileDescriptor>& descriptor);
  void dropFiles(Process& process);
  void forget(std::int32_t pid);
  void check(std::int32_t pid, Process& process) const;
  [[nodiscard]] std::size_t unitOf(std::int32_t pid) const;
  [[nodiscard]] double ageOf(const Process& process) const;
  [[nodiscard]] double nextCheck(std::int32_t pid, const Process& process) const;

  Settings settings_;
  std::shared_ptr<BootTime> bootTime_;
  std::shared_ptr<const Clock> uptime_;
  ProcfsProcessTable plain_;
  ProcFolder proc_;
  ListeningPorts ports_;
  std::pmr::unsynchronized_pool_resource nodes_;  // side by side, for speed
  std::pmr::unordered_map<std::int32_t, Process> processes_{&nodes_};
  std::vector<std::int32_t> pids_;   // ascending
  std::vector<std::int32_t> ended_;  // since the last pass began
  // As loadavg said in the last pass and in the one before. A process has its pid a little before it can be
  // seen: every pid is looked at in two passes.
  std::optional<std::int32_t> lastPid_;
  std::optional<std::int32_t> lastPidBefore_;
  double lastListing_ = 0.0;  // uptime
  double now_ = 0.0;          // uptime at the beginning of the pass
  std::uint64_t pass_ = 0;
  std::size_t kept_ = 0;
  bool swapInUse_ = false;
  std::int32_t foundPid_ = 0;  // the process asked for last, which is mostly asked for again
  Process* found_ = nullptr;
};

}  // namespace monitor::platform
