// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/Ports/ProcessTable.h"
#include "MonitorCore/ProcessKey.h"

namespace monitor::fakes {

// A table of made-up processes; the test adds, changes and ends them as it likes.
struct FakeProcessTable final : ProcessTable {
  struct Process {
    ProcessRecord record;
    std::string executable;
    std::optional<ProcessUsage> usage;
    std::vector<std::int64_t> ports;
    std::optional<std::string> directory;
  };

  std::map<std::int32_t, Process> processes;
  double cpuTimeUnit = 1.0;
  bool identitiesMayChange = true;
  std::function<void(std::vector<std::int32_t>&)> arrange;  // changes the list of pids before it is given
  std::atomic<int> recordReads = 0;                         // routers read on several threads
  std::atomic<int> executableReads = 0;

  // Starts (or replaces) a process; the reference stays good until the process ends.
  Process& add(const ProcessKey& key, std::string executable, std::uint32_t owner = 501,
               std::uint32_t parent = 1) {
    constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;
    Process& process = processes[key.pid];
    process = {};
    process.record = {key.start / kMicrosecondsPerSecond, key.start % kMicrosecondsPerSecond, parent, owner};
    process.executable = std::move(executable);
    return process;
  }
  void end(std::int32_t pid) { processes.erase(pid); }

  std::vector<std::int32_t> allPids() override {
    std::vector<std::int32_t> pids;
    for (const auto& [pid, process] : processes) pids.push_back(pid);
    if (arrange) arrange(pids);
    return pids;
  }
  std::optional<ProcessRecord> record(std::int32_t pid) override {
    ++recordReads;
    const Process* process = find(pid);
    return process != nullptr ? std::optional(process->record) : std::nullopt;
  }
  std::string executablePath(std::int32_t pid) override {
    ++executableReads;
    const Process* process = find(pid);
    return process != nullptr ? process->executable : std::string();
  }
  std::optional<ProcessUsage> usage(std::int32_t pid) override {
    const Process* process = find(pid);
    return process != nullptr ? process->usage : std::nullopt;
  }
  [[nodiscard]] double cpuTimeUnitNanoseconds() const override { return cpuTimeUnit; }
  std::vector<std::int64_t> listeningPorts(std::int32_t pid) override {
    const Process* process = find(pid);
    return process != nullptr ? process->ports : std::vector<std::int64_t>();
  }
  std::optional<std::string> workingDirectory(std::int32_t pid) override {
    const Process* process = find(pid);
    return process != nullptr ? process->directory : std::nullopt;
  }
  bool mayHaveNewIdentity(std::int32_t) override { return identitiesMayChange; }

 private:
  [[nodiscard]] const Process* find(std::int32_t pid) const {
    const auto found = processes.find(pid);
    return found != processes.end() ? &found->second : nullptr;
  }
};

}  // namespace monitor::fakes
