// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "MonitorMac/Ports/HostStatistics.h"

namespace monitor::fakes {

// A machine whose every figure the test sets. Counts how often the expensive questions are asked.
struct FakeHostStatistics final : HostStatistics {
  std::optional<CpuTicks> ticks = CpuTicks{100, 100, 100, 100};
  std::optional<std::uint64_t> physical = std::uint64_t{16} << 30U;
  std::optional<MemoryReport> report = MemoryReport{8'000, 2'000, 1'000};
  std::optional<std::int32_t> pressure = 1;
  std::optional<VolumeCapacity> volume = VolumeCapacity{500'000, 200'000};

  std::optional<CpuTicks> cpuTicks() override { return ticks; }
  std::optional<std::uint64_t> physicalMemory() override { return physical; }
  std::optional<MemoryReport> memory() override { return report; }
  std::optional<std::int32_t> memoryPressureLevel() override { return pressure; }
  std::optional<VolumeCapacity> homeVolume() override { return volume; }
};

struct FakeNetworkInterfaces final : NetworkInterfaces {
  std::set<std::string> physical{"en0"};
  std::vector<InterfaceCounter> rows{{"en0", 0, 0, true}};
  int refreshes = 0;

  std::set<std::string> physicalInterfaces() override {
    ++refreshes;
    return physical;
  }
  std::vector<InterfaceCounter> counters() override { return rows; }
};

struct FakeBlockStorage final : BlockStorage {
  std::vector<StorageCounter> rows{{"4294968000", 0, 0}};
  std::vector<StorageCounter> counters() override { return rows; }
};

struct FakePowerSources final : PowerSources {
  std::vector<PowerSource> list;
  std::optional<BatteryWear> batteryWear;
  std::vector<PowerSource> sources() override { return list; }
  std::optional<BatteryWear> wear() override { return batteryWear; }
};

struct FakeAccessories final : Accessories {
  std::vector<Accessory> list;
  int scans = 0;
  std::vector<Accessory> connected() override {
    ++scans;
    return list;
  }
};

}  // namespace monitor::fakes
