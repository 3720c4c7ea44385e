// SPDX-License-Identifier: MIT
#include "MonitorCore/AppUsage.h"

namespace monitor {

std::optional<double> AppUsage::value(MetricID metric) const {
  switch (metric) {
    case MetricID::Cpu:
      return cpu;
    case MetricID::MemoryUsed:
      return static_cast<double>(memory);
    case MetricID::DiskRead:
      return diskRead;
    case MetricID::DiskWrite:
      return diskWrite;
    case MetricID::Download:
      return download;
    case MetricID::Upload:
      return upload;
    case MetricID::EnergyImpact:
      return energy;
    default:
      return std::nullopt;
  }
}

}  // namespace monitor
