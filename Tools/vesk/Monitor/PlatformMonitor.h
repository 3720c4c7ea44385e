// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "MonitorMac/NativeAudioActivity.h"
#include "MonitorMac/NativeMonitorCollector.h"
#include "Tools/vesk/Monitor/AdvancedReadings.h"

namespace monitor::vesk {

// Sampling with everything it takes from the platform. One thread at a time. What is not asked for costs
// nothing: the audio server and the helper are only looked for when they are first needed.
class PlatformMonitor {
 public:
  PlatformMonitor();
  ~PlatformMonitor();
  PlatformMonitor(const PlatformMonitor&) = delete;
  PlatformMonitor& operator=(const PlatformMonitor&) = delete;

  [[nodiscard]] NativeMonitorCollector& collector();
  [[nodiscard]] AdvancedReadings& advanced();
  // The programs that produce sound now. Throws NativeAudioActivity::AudioActivityError.
  [[nodiscard]] std::vector<ActiveAudioApplication> sounding();
  // What the platform says about the last failure of sounding(); may be empty.
  [[nodiscard]] std::string soundingProblem() const;

 private:
  struct Ports;
  std::unique_ptr<Ports> ports_;
};

}  // namespace monitor::vesk
