// SPDX-License-Identifier: MIT
#pragma once

#include "Tools/vesk/Console.h"
#include "Tools/vesk/ExitCode.h"

namespace monitor::vesk::agent {

struct AgentOptions {
  double idleSeconds = 10.0;  // how long it stays with nothing to hold and nobody calling
};

// The agent's whole life in the calling thread: serves the session bus until it has been idle, is told to end
// by SIGTERM or SIGINT, or the bus goes. Whatever it held ends with it, since the service gives normal
// playback back as soon as its client leaves the bus. Throws CommandError where it cannot begin.
[[nodiscard]] ExitCode runAgent(const AgentOptions& options, const Console& console);

}  // namespace monitor::vesk::agent
