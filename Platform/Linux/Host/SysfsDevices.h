// SPDX-License-Identifier: MIT
#pragma once

#include "MonitorMac/Ports/HostStatistics.h"
#include "Platform/Linux/Host/HostFiles.h"

namespace monitor::platform {

// Whole drives with a device behind them: no partitions, loops, RAM disks, arrays or device-mapper doubles,
// and of a drive with several paths the one that is shown.
class SysfsBlockStorage final : public BlockStorage {
 public:
  explicit SysfsBlockStorage(HostFiles files) : files_(std::move(files)) {}
  [[nodiscard]] std::vector<StorageCounter> counters() override;

 private:
  HostFiles files_;
};

// The machine's own batteries as one source: charges, drains and capacities of several batteries add up.
// Their state is the first one's that is not idle.
class SysfsPowerSources final : public PowerSources {
 public:
  explicit SysfsPowerSources(HostFiles files) : files_(std::move(files)) {}
  [[nodiscard]] std::vector<PowerSource> sources() override;
  [[nodiscard]] std::optional<BatteryWear> wear() override;

 private:
  HostFiles files_;
};

// Power supplies of connected devices: mice, headsets, pens.
class SysfsAccessories final : public Accessories {
 public:
  explicit SysfsAccessories(HostFiles files) : files_(std::move(files)) {}
  [[nodiscard]] std::vector<Accessory> connected() override;

 private:
  HostFiles files_;
};

}  // namespace monitor::platform
