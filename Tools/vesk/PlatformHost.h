// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorCore/Ports/SystemInformation.h"
#include "MonitorCore/Ports/Time.h"

namespace monitor::vesk {

// What commands take from the platform beyond audio and sampling.
struct PlatformHost {
  std::shared_ptr<SystemInformation> system;
  std::unique_ptr<Clock> clock;  // for durations
  std::unique_ptr<WallClock> wallClock;
};

[[nodiscard]] PlatformHost makePlatformHost();

}  // namespace monitor::vesk
