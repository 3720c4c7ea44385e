// SPDX-License-Identifier: MIT
// What another project makes of the installed package.
#include <cstdio>

#include "MonitorAudioEngine/AudioRouteError.h"
#include "MonitorCore/ProcessKey.h"

int main() {
  std::puts(monitor::fallbackIdentity({812, 5000}).c_str());
  return monitor::AudioRouteError::timedOut().status();
}
