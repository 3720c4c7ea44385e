// SPDX-License-Identifier: MIT
#include <cstdint>
#include <sstream>

#include "MonitorCore/AppAggregator.h"
#include "MonitorCore/MonitorAlertRules.h"
#include "MonitorCore/ProcessRecording.h"
#include "MonitorCore/ProjectActivityTracker.h"
#include "MonitorCore/ProjectGrouper.h"
#include "MonitorCore/Recording.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  monitor::MonitorPreferences preferences;
  preferences.alertsEnabled = true;
  preferences.diskThreshold = 1.0;
  try {
    std::istringstream in(bytes);
    monitor::RecordingReader reader(in, "input");
    monitor::MonitorAlertRules rules;
    monitor::ProjectActivityTracker tracker;
    while (auto sample = reader.next(monitor::decodeProcesses)) {
      static_cast<void>(monitor::encodeProcesses(*sample));
      static_cast<void>(monitor::ProjectGrouper::groups(sample->processes));
      tracker.observe(sample->processes, sample->timestamp);
      const auto apps = monitor::AppAggregator::group(std::move(sample->processes));
      static_cast<void>(rules.evaluate(apps, sample->timestamp, preferences));
    }
  } catch (const monitor::RecordingError&) {
  }
  return 0;
}
