// SPDX-License-Identifier: MIT
#include "Platform/Linux/Base/Clocks.h"

#include <gtest/gtest.h>
#include <time.h>

#include <chrono>

namespace monitor::platform {
namespace {

double kernelSeconds(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// The clock's reading lies between two readings of the kernel's.
template <class Reading>
void expectBetween(clockid_t clock, Reading read) {
  const double before = kernelSeconds(clock);
  const double value = read();
  const double after = kernelSeconds(clock);
  EXPECT_GE(value, before);
  EXPECT_LE(value, after);
}

TEST(Clocks, MonotonicClockStandsStillDuringSuspend) {
  const MonotonicClock clock;
  expectBetween(CLOCK_MONOTONIC, [&] { return clock.now(); });
}

TEST(Clocks, BootTimeClockCountsSuspendedTime) {
  const BootTimeClock clock;
  expectBetween(CLOCK_BOOTTIME, [&] { return clock.now(); });
}

TEST(Clocks, WallClockAgreesWithTheSystems) {
  const SystemWallClock clock;
  const std::chrono::duration<double> since1970 = std::chrono::system_clock::now().time_since_epoch();
  EXPECT_NEAR(clock.now().secondsSince1970(), since1970.count(), 1.0);
}

}  // namespace
}  // namespace monitor::platform
