// SPDX-License-Identifier: MIT
#pragma once

#include "MonitorCore/Date.h"

namespace monitor {

// A monotonic clock in seconds from an arbitrary start. A step of the wall clock never moves it. Whether suspended
// time counts is the adapter's word: deadlines and watchdogs use one that stands still during suspend, the
// collector's uptime one that goes on. Any thread.
class Clock {
 public:
  virtual ~Clock() = default;
  [[nodiscard]] virtual double now() const = 0;
};

// The time of day, for timestamps that are stored or shown. May jump in both directions. Any thread.
class WallClock {
 public:
  virtual ~WallClock() = default;
  [[nodiscard]] virtual Date now() const = 0;
};

}  // namespace monitor
