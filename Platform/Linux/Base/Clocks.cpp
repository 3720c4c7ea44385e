// SPDX-License-Identifier: MIT
#include "Platform/Linux/Base/Clocks.h"

#include <time.h>

namespace monitor::platform {
namespace {

double seconds(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace

double MonotonicClock::now() const {
  return seconds(CLOCK_MONOTONIC);
}
double BootTimeClock::now() const {
  return seconds(CLOCK_BOOTTIME);
}
Date SystemWallClock::now() const {
  return Date::since1970(seconds(CLOCK_REALTIME));
}

}  // namespace monitor::platform
