// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "Tools/AudioLab/StackOptions.h"

namespace monitor::lab {

inline constexpr const char* kServiceName = "app.vesk.native.monitor-audio";
inline constexpr const char* kAgentName = "app.vesk.native.agent";

// The audio service and the agent as they were built, for a private session bus to start. LabError when they
// were not.
[[nodiscard]] std::vector<Activation> builtServices();

}  // namespace monitor::lab
