// SPDX-License-Identifier: MIT
#pragma once

#include "MonitorCore/Ports/Time.h"

namespace monitor::platform {

// Seconds since some start that stand still while the machine is suspended: deadlines, watchdogs.
class MonotonicClock final : public Clock {
 public:
  [[nodiscard]] double now() const override;
};

// Seconds since the machine started, suspended time included: uptime and rates.
class BootTimeClock final : public Clock {
 public:
  [[nodiscard]] double now() const override;
};

class SystemWallClock final : public WallClock {
 public:
  [[nodiscard]] Date now() const override;
};

}  // namespace monitor::platform
