// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <vector>

#include "MonitorCore/ProjectActivityTracker.h"
#include "Tools/vesk/Agent/HeldGains.h"
#include "Tools/vesk/Monitor/PlatformMonitor.h"
#include "Tools/vesk/Top/TopState.h"

namespace monitor::vesk {

// Where `vesk top` gets what it shows: the sampler, the programs that sound, and the volumes that the agent
// holds, where one runs. It starts neither agent nor audio service. One thread at a time.
class TopSource {
 public:
  TopSource();
  ~TopSource();
  TopSource(const TopSource&) = delete;
  TopSource& operator=(const TopSource&) = delete;

  [[nodiscard]] TopData look(bool projects);

 private:
  struct Agent;  // the line to it, on platforms that have one

  void lookAtSound(TopData& data);

  PlatformMonitor monitor_;
  ProjectActivityTracker tracker_;
  std::unique_ptr<Agent> agent_;
};

}  // namespace monitor::vesk
