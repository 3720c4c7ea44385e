// SPDX-License-Identifier: MIT
#include "Tools/vesk/Monitor/HelperAdvancedReadings.h"

#include <cmath>

#include "MonitorCore/AdvancedMerge.h"

namespace monitor::vesk {

void HelperAdvancedReadings::mergeInto(MonitorSnapshot& snapshot) {
  constexpr double kLongestGap = 90.0;  // seconds; either way, since the helper may have answered later
  const auto sample = helper_.latest();
  if (!sample || std::abs(snapshot.timestamp.secondsSince(sample->timestamp)) > kLongestGap) return;
  mergeAdvanced(snapshot, *sample);
}

}  // namespace monitor::vesk
