// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "MonitorCore/AccessoryBattery.h"
#include "MonitorCore/AppUsage.h"
#include "MonitorCore/Date.h"
#include "MonitorCore/MetricReading.h"

namespace monitor {

// One sampling pass over the whole machine. In memory only; made with the first seven fields in this order.
struct MonitorSnapshot {
  Date timestamp;         // end of the sampled interval
  double uptime = 0.0;    // seconds, at `timestamp`
  double interval = 0.0;  // seconds since the previous sample: what the rates cover
  MetricReadings readings;
  std::vector<AppUsage> apps;  // as the aggregator ordered them
  std::vector<AccessoryBattery> accessories;
  std::int64_t restrictedProcessCount = 0;  // processes that could not be inspected

  // Time of the latest sample from the privileged helper; absent when none has arrived. Marks how fresh
  // readings with the helper's source and the per-app network and energy figures are: they cover
  // `advancedInterval` seconds that end here, everything else `interval` seconds that end at `timestamp`.
  std::optional<Date> advancedTimestamp = std::nullopt;
  double advancedInterval = 1.0;  // seconds
};

}  // namespace monitor
