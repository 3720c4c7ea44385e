// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <limits>
#include <memory_resource>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "MonitorCore/AccessoryBattery.h"
#include "MonitorCore/CounterRate.h"
#include "MonitorCore/InterfaceRates.h"
#include "MonitorCore/MonitorSnapshot.h"
#include "MonitorCore/Ports/ApplicationBundles.h"
#include "MonitorCore/Ports/ProcessTable.h"
#include "MonitorCore/Ports/SystemInformation.h"
#include "MonitorCore/Ports/Time.h"
#include "MonitorMac/Ports/HostStatistics.h"
#include "MonitorMac/ProcessIdentity.h"
#include "MonitorMac/SourceTexts.h"

namespace monitor {

// The sampler of the whole machine, without privileges. Every source fails on its own: its reading is left
// out or says so by its state, and nothing is thrown for it.
//
// Threads: operations are serialised, from any thread. The ports are used by one operation at a time and must
// outlive the collector.
class NativeMonitorCollector {
 public:
  struct Ports {
    const Clock& uptime;  // counts suspended time, so that a sleep is a gap
    const WallClock& wallClock;
    const SystemInformation& system;
    HostStatistics& host;
    NetworkInterfaces& network;
    BlockStorage& storage;
    PowerSources& power;
    Accessories& accessories;
    ProcessTable& processes;
    ApplicationBundles& bundles;
    const SourceTexts& texts;
  };

  explicit NativeMonitorCollector(const Ports& ports) : ports_(ports) {}

  // One pass over the machine. `includeProjects` adds listening ports and working directories, which cost a
  // walk over descriptors.
  [[nodiscard]] MonitorSnapshot sample(bool includeProjects);

  // Forgets everything that is a rate; facts about the machine (names, physical interfaces, accessories)
  // stay.
  void reset();

  // One process's identity; they need no sampler and may be called wherever the table may be.
  [[nodiscard]] static std::optional<ProcessIdentity> processInfo(ProcessTable& table, std::int32_t pid) {
    return monitor::processInfo(table, pid);
  }
  [[nodiscard]] static std::string executable(ProcessTable& table, std::int32_t pid) {
    return monitor::executable(table, pid);
  }

 private:
  struct Identity {
    std::string name;
    std::optional<std::string> bundleID;
  };
  // What is remembered of a process as long as every pass sees it.
  struct Known {
    CounterRate cpu;
    CounterRate diskRead;
    CounterRate diskWrite;
    std::uint64_t pass = 0;  // the last pass that saw the process; 0 for none
    std::size_t place = 0;   // in that pass's order
    std::string executable;
    Identity identity;
  };
  using Remembered = std::pair<const ProcessKey, Known>;
  struct Listing {
    std::vector<ProcessSample> processes;
    std::int64_t restricted = 0;
  };
  // What holds for all processes of one pass.
  struct Pass {
    double uptime = 0.0;
    std::uint32_t owner = 0;  // whose processes count
    double cpuTimeUnit = 0.0;
    bool includeProjects = false;
  };

  void forgetRates();
  void readCPU(MonitorSnapshot& snapshot);
  void readMemory(MonitorSnapshot& snapshot);
  void readPressure(MonitorSnapshot& snapshot);
  void readHomeVolume(MonitorSnapshot& snapshot);
  void readNetwork(MonitorSnapshot& snapshot);
  void readStorage(MonitorSnapshot& snapshot);
  void readBattery(MonitorSnapshot& snapshot);
  void readProcesses(double uptime, bool includeProjects);
  // Appends the process to the listing, or counts it there, or neither.
  void readProcess(std::int32_t pid, const Pass& pass);
  [[nodiscard]] Remembered& remembered(const ProcessKey& key);
  static void prefetch(const Remembered& process);
  void forgetEndedProcesses();
  void identify(std::int32_t pid, Known& known);
  [[nodiscard]] const Identity& identity(std::int32_t pid, const std::string& executable);
  void refreshAccessories();

  Ports ports_;
  std::mutex mutex_;
  std::optional<CpuTicks> previousCPU_;
  std::optional<double> previousUptime_;
  InterfaceRates network_;
  InterfaceRates diskIO_;
  std::pmr::unsynchronized_pool_resource nodes_;  // side by side, for speed
  std::pmr::unordered_map<ProcessKey, Known> processRates_{&nodes_};
  std::vector<Remembered*> order_;      // of `processRates_`, each once, as the last pass met them
  std::vector<Remembered*> lastOrder_;  // as the one before did, while a pass lasts
  std::size_t next_ = 0;                // in `lastOrder_`
  std::unordered_map<std::string, Identity> identities_;
  std::set<std::string> physicalInterfaces_;
  double lastInterfaces_ = -std::numeric_limits<double>::infinity();
  std::vector<AccessoryBattery> accessoryReadings_;
  double lastAccessories_ = -std::numeric_limits<double>::infinity();
  Listing listing_;
  std::uint64_t pass_ = 0;
};

}  // namespace monitor
