// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

// What the collector asks of the machine. One caller at a time; every read is synchronous, needs no
// privileges and fails on its own: an absent answer leaves that reading out and touches no other.
namespace monitor {

// Time of all logical processors together since boot, in ticks of any unit. The sums only grow while the
// machine runs, except where the platform's own counters wrap.
struct CpuTicks {
  std::uint64_t user = 0;
  std::uint64_t system = 0;
  std::uint64_t idle = 0;
  std::uint64_t nice = 0;
};

struct MemoryReport {  // bytes
  std::optional<std::uint64_t> used = std::nullopt;
  std::optional<std::uint64_t> wired = std::nullopt;
  std::optional<std::uint64_t> compressed = std::nullopt;
};

struct VolumeCapacity {  // bytes
  std::optional<std::uint64_t> total = std::nullopt;
  std::optional<std::uint64_t> available = std::nullopt;  // to an ordinary user
};

class HostStatistics {
 public:
  virtual ~HostStatistics() = default;
  [[nodiscard]] virtual std::optional<CpuTicks> cpuTicks() = 0;
  [[nodiscard]] virtual std::optional<std::uint64_t> physicalMemory() = 0;  // bytes
  [[nodiscard]] virtual std::optional<MemoryReport> memory() = 0;
  // 4 and above: critical; 2 and 3: warning; below: normal.
  [[nodiscard]] virtual std::optional<std::int32_t> memoryPressureLevel() = 0;
  // The volume that holds the user's home folder.
  [[nodiscard]] virtual std::optional<VolumeCapacity> homeVolume() = 0;
};

// Cumulative bytes of one network interface.
struct InterfaceCounter {
  std::string name;
  std::uint64_t received = 0;
  std::uint64_t sent = 0;
  bool up = false;
};

class NetworkInterfaces {
 public:
  virtual ~NetworkInterfaces() = default;
  // Names of the interfaces that carry the machine's external traffic once: no loopback, tunnel, bridge or
  // VPN.
  [[nodiscard]] virtual std::set<std::string> physicalInterfaces() = 0;
  [[nodiscard]] virtual std::vector<InterfaceCounter> counters() = 0;
};

// Cumulative bytes of one physical drive; counted only when both are known.
struct StorageCounter {
  std::string id;
  std::optional<std::uint64_t> read = std::nullopt;
  std::optional<std::uint64_t> written = std::nullopt;
};

class BlockStorage {
 public:
  virtual ~BlockStorage() = default;
  [[nodiscard]] virtual std::vector<StorageCounter> counters() = 0;
};

// One source of power, in the platform's order.
struct PowerSource {
  bool internalBattery = false;
  std::optional<double> currentCapacity = std::nullopt;  // same unit as maximumCapacity
  std::optional<double> maximumCapacity = std::nullopt;
  std::optional<double> minutesToEmpty = std::nullopt;
  std::optional<std::string> state = std::nullopt;  // the platform's own word, shown as it is
};

// The battery's wear: today's full charge and the one it was made for, in one unit.
struct BatteryWear {
  std::optional<double> fullCapacity = std::nullopt;
  std::optional<double> designCapacity = std::nullopt;
};

class PowerSources {
 public:
  virtual ~PowerSources() = default;
  [[nodiscard]] virtual std::vector<PowerSource> sources() = 0;
  [[nodiscard]] virtual std::optional<BatteryWear> wear() = 0;
};

// A connected device that may report a battery.
struct Accessory {
  std::string id;
  std::optional<std::string> product = std::nullopt;
  std::optional<double> batteryPercent = std::nullopt;
};

class Accessories {
 public:
  virtual ~Accessories() = default;
  [[nodiscard]] virtual std::vector<Accessory> connected() = 0;
};

}  // namespace monitor
