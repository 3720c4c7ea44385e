// SPDX-License-Identifier: MIT
#include "Platform/Darwin/Clocks.h"

#import <Foundation/Foundation.h>

#include <chrono>

namespace monitor::platform {
namespace {

class SteadyClock final : public Clock {
 public:
  [[nodiscard]] double now() const override {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
  }
};

class UptimeClock final : public Clock {
 public:
  [[nodiscard]] double now() const override { return NSProcessInfo.processInfo.systemUptime; }
};

class SystemWallClock final : public WallClock {
 public:
  [[nodiscard]] Date now() const override {
    return Date::since1970(std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count());
  }
};

}  // namespace

std::unique_ptr<Clock> makeMonotonicClock() { return std::make_unique<SteadyClock>(); }
std::unique_ptr<Clock> makeUptimeClock() { return std::make_unique<UptimeClock>(); }
std::unique_ptr<WallClock> makeWallClock() { return std::make_unique<SystemWallClock>(); }

}  // namespace monitor::platform
