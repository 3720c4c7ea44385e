// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Linux/Audio/GraphModel.h"

struct pw_core;

namespace monitor::platform {

// Where the session manager puts the streams of a route, so that it removes their direct paths and, when the
// node goes with its owner in whatever way, makes them again. An inactive input that never runs: the sound
// takes the route's own links. Its media class is hidden from users' device lists. Loop thread only.
class ParkingNode {
 public:
  // The same channels as the device's, so that the session manager need not set the streams' ports up anew.
  // `failed` is called from inside an event when the server refuses the node. Throws AudioCallError.
  ParkingNode(pw_core* core, const std::string& name, const std::vector<std::string>& channels,
              std::function<void(std::string)> failed);
  ~ParkingNode();
  ParkingNode(const ParkingNode&) = delete;
  ParkingNode& operator=(const ParkingNode&) = delete;

  [[nodiscard]] const std::string& name() const;
  // Whether streams can be linked to it; before that the session manager would send them to the default
  // output.
  [[nodiscard]] bool announced(const GraphModel& graph) const;

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace monitor::platform
