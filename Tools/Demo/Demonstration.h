// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Tools/AudioLab/Player.h"
#include "Tools/AudioLab/Recording.h"
#include "Tools/Demo/Figures.h"

namespace monitor::demo {

struct DemonstrationOptions {
  unsigned quantum = 256;                            // frames of a cycle
  lab::PlayerKind routed = lab::PlayerKind::Native;  // the program that is set to 40 %; the other kind stays
};

struct Event {
  std::string label;
  std::uint64_t nanoseconds = 0;  // CLOCK_MONOTONIC
};

struct Demonstration {
  Figures figures;
  lab::Recording recording;
  std::size_t routedChannel = 0, otherChannel = 1;
  std::string routedName, otherName;
  std::vector<Event> events;
  Event takeover, killed;  // the two that are worth a closer look
};

// What a spectator is told while it goes on: a step with what came of it, or a command with its output.
struct Narrator {
  std::function<void(const std::string& step, const std::string& result)> step;
  std::function<void(const std::string& command, const std::string& output)> command;
};

// The whole main job once, for real: a private audio system and session bus, two players, `vesk` with agent
// and service started by the bus, the device recorded. Takes some nine seconds. lab::LabError when something
// does not work at all.
[[nodiscard]] Demonstration runDemonstration(const DemonstrationOptions& options, const Narrator& narrator);

}  // namespace monitor::demo
