// SPDX-License-Identifier: MIT
#pragma once

#include "MonitorCore/MonitorSnapshot.h"
#include "MonitorCore/Ports/Time.h"
#include "MonitorMac/NativeMonitorCollector.h"
#include "Tools/vesk/Monitor/AdvancedReadings.h"
#include "Tools/vesk/Monitor/Pause.h"

namespace monitor::vesk {

// What the sampling commands work with. Everything outlives the call.
struct MonitorHost {
  NativeMonitorCollector& collector;
  AdvancedReadings& advanced;
  const Clock& clock;  // of `pause`
  Pause& pause;
};

// One pass with the helper's latest readings in it, and the helper asked for the next.
[[nodiscard]] inline MonitorSnapshot samplePass(const MonitorHost& host, bool includeProjects) {
  MonitorSnapshot snapshot = host.collector.sample(includeProjects);
  host.advanced.mergeInto(snapshot);
  host.advanced.request();
  return snapshot;
}

}  // namespace monitor::vesk
