// SPDX-License-Identifier: MIT
#include "MonitorMac/MonitorPlatform.h"

namespace monitor::MonitorPlatform {

std::filesystem::path historyURL(const SystemInformation& system) {
  // Joined as text: an identifier is one component whatever it begins with.
  return system.applicationSupportFolder() + '/' + system.mainBundleIdentifier().value_or("app.vesk.native") +
         "/Monitor/history.sqlite";
}

bool supportsAudio(const SystemInformation& system) {
  const auto version = system.macOSVersion();
  return !version || *version >= OperatingSystemVersion{14, 2, 0};
}

}  // namespace monitor::MonitorPlatform
