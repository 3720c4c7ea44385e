// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace monitor::vesk {

struct AudioServerState {
  bool reachable = false;
  std::string address;  // the socket's path
  std::string problem;  // why it is not reachable
};

// Whether the audio server's socket takes connections. Nothing is said over it.
[[nodiscard]] AudioServerState probeAudioServer();

}  // namespace monitor::vesk
