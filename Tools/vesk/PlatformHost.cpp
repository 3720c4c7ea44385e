// SPDX-License-Identifier: MIT
#include "Tools/vesk/PlatformHost.h"

#ifdef __APPLE__
#include "Platform/Darwin/BundleApplications.h"
#include "Platform/Darwin/Clocks.h"
#else
#include "Platform/Linux/Base/Clocks.h"
#include "Platform/Linux/Base/LinuxSystemInformation.h"
#endif

namespace monitor::vesk {

PlatformHost makePlatformHost() {
#ifdef __APPLE__
  return {platform::makeSystemInformation(), platform::makeMonotonicClock(), platform::makeWallClock()};
#else
  return {platform::makeSystemInformation(), std::make_unique<platform::MonotonicClock>(),
          std::make_unique<platform::SystemWallClock>()};
#endif
}

}  // namespace monitor::vesk
