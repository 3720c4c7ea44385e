// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "MonitorCore/Ports/Time.h"
#include "Platform/Linux/Power/PowerMeter.h"

namespace monitor::powermetrics {

enum class ExitCode : int { Ok = 0, Failed = 1, Usage = 2 };

struct Surroundings {
  platform::PowerSources sources;
  const WallClock& wallClock;
  // Writes all of it and returns 0, or the number of the error.
  std::function<int(std::string_view)> output;
  // One line for a person.
  std::function<void(const std::string&)> complain;
};

// The program: every document is complete before its first byte is written.
[[nodiscard]] ExitCode run(const std::vector<std::string>& arguments, const Surroundings& surroundings);

}  // namespace monitor::powermetrics
