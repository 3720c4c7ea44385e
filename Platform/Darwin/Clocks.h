// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorCore/Ports/Time.h"

namespace monitor::platform {

// For deadlines and watchdogs; stands still while the machine sleeps.
[[nodiscard]] std::unique_ptr<Clock> makeMonotonicClock();
// Seconds since boot as the system reports them; what the collector calls uptime.
[[nodiscard]] std::unique_ptr<Clock> makeUptimeClock();
[[nodiscard]] std::unique_ptr<WallClock> makeWallClock();

}  // namespace monitor::platform
