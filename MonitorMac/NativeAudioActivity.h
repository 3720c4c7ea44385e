// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "MonitorCore/Ports/ApplicationBundles.h"
#include "MonitorCore/Ports/AudioHardware.h"
#include "MonitorCore/Ports/ProcessTable.h"
#include "MonitorCore/Ports/SystemInformation.h"
#include "MonitorMac/Ports/TextOrder.h"

namespace monitor {

// One of the user's applications that produces sound now.
struct ActiveAudioApplication {
  std::string id;                        // bundle identifier, or fallbackIdentity() of the process
  std::string name;                      // display name
  std::optional<std::string> bundleURL;  // path of the application's bundle

  friend bool operator==(const ActiveAudioApplication&, const ActiveAudioApplication&) = default;
};

// Lists what is audible without the audio service. Ids and names agree with the service's list.
class NativeAudioActivity {
 public:
  // The audio system would not say which processes there are.
  class AudioActivityError : public std::runtime_error {
   public:
    AudioActivityError() : std::runtime_error("The list of programs that use audio is unavailable.") {}
    friend bool operator==(const AudioActivityError&, const AudioActivityError&) { return true; }
  };

  struct Ports {
    AudioHardware& hardware;
    ProcessTable& processes;
    ApplicationBundles& bundles;
    const SystemInformation& system;
    const TextOrder& order;
  };

  // Sorted by name as a file browser would. Empty on a Mac older than 14.2. Throws AudioActivityError.
  [[nodiscard]] static std::vector<ActiveAudioApplication> snapshot(const Ports& ports);
};

}  // namespace monitor
