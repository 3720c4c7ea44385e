// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Linux/Audio/GraphModel.h"
#include "Platform/Linux/Audio/RouteMixer.h"

struct pw_core;

namespace monitor::platform {

// The node that a route's sound goes through: an output port for each channel of the device, and slots of as
// many input ports for the program's streams. It has no media class, so that the session manager leaves it
// alone and nobody shows it as a device. Loop thread only; the mixer's cycles run on the realtime thread.
class RouteFilter {
 public:
  struct Setup {
    std::string name;         // node name
    std::string description;  // shown by graph editors
    std::vector<std::string> channels;
    std::size_t slots = 1;
  };

  // `failed` is called from inside an event when the server refuses the node. Throws AudioCallError.
  RouteFilter(pw_core* core, const Setup& setup, std::function<void(std::string)> failed);
  ~RouteFilter();
  RouteFilter(const RouteFilter&) = delete;
  RouteFilter& operator=(const RouteFilter&) = delete;

  [[nodiscard]] RouteMixer& mixer();
  // Adds slots until there are `count`; their ports are announced later. False when there can be no more.
  bool growSlots(std::size_t count);
  // Nothing while the server has not announced the node.
  [[nodiscard]] std::optional<GlobalID> node() const;
  // Whether the server has announced the node with all its ports.
  [[nodiscard]] bool announced(const GraphModel& graph) const;
  [[nodiscard]] std::optional<GlobalID> outputPort(const GraphModel& graph, std::size_t channel) const;
  [[nodiscard]] std::optional<GlobalID> slotPort(const GraphModel& graph, std::size_t slot,
                                                 std::size_t channel) const;

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace monitor::platform
