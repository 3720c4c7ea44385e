// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "MonitorCore/AudioApplication.h"
#include "Tools/vesk/Agent/GainKeeper.h"

namespace monitor::vesk::agent {

struct ListedApplications {
  std::vector<AudioApplication> applications;
  std::string message;  // what went wrong since, if anything
};

// The service's own text with what the platform knows better on a second line, as a CommandError (Failed),
// where the answer is a refusal.
[[nodiscard]] ListedApplications listOrThrow(GainKeeper::ListAnswer answer);
void throwIfRefused(const GainKeeper::Answer& answer);

}  // namespace monitor::vesk::agent
