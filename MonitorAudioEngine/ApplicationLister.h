// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/AudioApplication.h"
#include "MonitorCore/Ports/ApplicationBundles.h"
#include "MonitorCore/Ports/AudioHardware.h"
#include "MonitorCore/Ports/ProcessTable.h"
#include "MonitorCore/Ports/SystemInformation.h"

namespace monitor {

// An application and the audio objects of its processes, in the same order.
struct ListedApplication {
  AudioApplication application;  // gain 1.0
  std::vector<AudioObjectID> objects;
};

// Lists the applications of this user that use audio, this process excepted. Keeps nothing between two lists;
// the collaborators outlive it. Used where the hardware's view may be used.
class ApplicationLister {
 public:
  ApplicationLister(AudioHardware& hardware, ProcessTable& processes, ApplicationBundles& bundles,
                    const SystemInformation& system);

  // In the order in which the audio system knows their first processes. AudioRouteError when the audio system
  // does not tell its processes; a single process that cannot be read is left out.
  [[nodiscard]] std::vector<ListedApplication> list() const;

 private:
  // The application as one of its processes shows it. `unreadable` is set when a property could not be read.
  [[nodiscard]] std::optional<AudioApplication> describe(AudioObjectID object, bool& unreadable) const;

  AudioHardware& hardware_;
  ProcessTable& processes_;
  ApplicationBundles& bundles_;
  const SystemInformation& system_;
};

}  // namespace monitor
