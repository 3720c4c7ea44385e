// SPDX-License-Identifier: MIT
#include "MonitorHelperService/PowerRounding.h"

#include <cmath>

namespace monitor {

void roundWatts(AdvancedSample& sample) {
  constexpr double kStepsPerWatt = 10.0;
  for (auto& [metric, reading] : sample.readings) {
    if (reading.unit != MetricUnit::Watts || !reading.value) continue;
    reading.value = std::round(*reading.value * kStepsPerWatt) / kStepsPerWatt;
  }
}

}  // namespace monitor
