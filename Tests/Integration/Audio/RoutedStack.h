// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "MonitorAudioEngine/ProcessAudioRoute.h"
#include "Platform/Linux/Audio/AudioHardwareProvider.h"
#include "Tests/Integration/Audio/HardwareView.h"
#include "Tools/AudioLab/Analyser.h"
#include "Tools/AudioLab/Environment.h"
#include "Tools/AudioLab/Graph.h"
#include "Tools/AudioLab/Player.h"
#include "Tools/AudioLab/PrivateStack.h"
#include "Tools/AudioLab/Recorder.h"

namespace monitor::platform::test {

using lab::Player;
using lab::PlayerKind;

// A private stack, this process on it, and one view of its audio hardware.
struct RoutedStack {
  explicit RoutedStack(lab::StackOptions options = {}) : stack(std::move(options)) {}

  // A route of these programs' processes on the default output. Throws AudioRouteError.
  std::unique_ptr<ProcessAudioRoute> route(const std::vector<const Player*>& players, double gain) {
    return routeOn(view, players, gain);
  }
  std::unique_ptr<ProcessAudioRoute> routeOn(const HardwareView& on,
                                             const std::vector<const Player*>& players, double gain) {
    std::vector<AudioObjectID> objects;
    for (const Player* player : players) objects.push_back(on.processOf(player->pid()));
    auto made = std::make_unique<ProcessAudioRoute>(
        *on.hardware, std::vector<ProcessKey>{}, objects, on.defaultDevice(),
        [this] { return "uuid-" + std::to_string(++uuids); }, 0.0);
    made->setGain(gain);
    return made;
  }
  // Waits until the programs are listed as running.
  [[nodiscard]] bool plays(const std::vector<const Player*>& players) const {
    return eventually([&] {
      for (const Player* player : players) {
        if (!view.running(player->pid())) return false;
      }
      return true;
    });
  }
  // Objects of this service in the server's graph, by name.
  [[nodiscard]] std::vector<std::string> leftovers() const {
    std::vector<std::string> names;
    const lab::GraphView graphView = graph.view();
    for (const auto* node : graphView.ofType("Node")) {
      const std::string name = node->property("node.name");
      if (name.starts_with("vesk-monitor.")) names.push_back(name);
    }
    for (const auto& [key, value] : graphView.metadata) {
      if (value.starts_with("vesk-monitor.")) names.push_back(value);
    }
    return names;
  }
  [[nodiscard]] bool isClean() const {
    return eventually([&] { return leftovers().empty(); });
  }

  lab::PrivateStack stack;
  lab::ScopedEnvironment environment{stack.environment()};
  lab::Graph graph{stack.remote()};
  std::shared_ptr<AudioHardwareProvider> provider = makeAudioHardwareProvider();
  HardwareView view{provider->openView()};
  int uuids = 0;
};

// A recording of the whole test, one program on each channel.
struct Listening {
  explicit Listening(const RoutedStack& on, const std::string& sink = "lab-sink-a")
      : recorder(on.stack.remote(), {.sink = sink}) {}

  // What was heard on a channel from `from` on.
  [[nodiscard]] std::vector<lab::Stretch> stretches(unsigned channel, std::size_t from = 0) const {
    return lab::findStretches(recorder.recording(from).channels.at(channel));
  }
  [[nodiscard]] std::size_t frames() const { return recorder.frames(); }

  lab::Recorder recorder;
};

}  // namespace monitor::platform::test
