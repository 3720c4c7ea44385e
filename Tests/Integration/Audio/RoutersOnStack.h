// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>

#include "MonitorAudioEngine/AudioRouter.h"
#include "Platform/Linux/Base/Clocks.h"
#include "Platform/Linux/Base/LinuxSystemInformation.h"
#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Base/RandomUuid.h"
#include "Platform/Linux/Process/ProcessAdapters.h"
#include "Tests/Integration/Audio/RoutedStack.h"

namespace monitor::platform::test {

// A private stack and as many clients as a test wants, each with a router of its own.
struct RoutersOnStack : RoutedStack {
  using RoutedStack::RoutedStack;

  std::shared_ptr<AudioRouter> client() {
    return AudioRouter::make(
        {provider->openView(), *queues, clock, *processes, *bundles, *system, randomUuid});
  }

  std::shared_ptr<SerialQueueFactory> queues = makeSerialQueueFactory();
  MonotonicClock clock;
  std::shared_ptr<ProcessTable> processes = makeProcessTable();
  std::shared_ptr<ApplicationBundles> bundles = makeApplicationBundles();
  std::shared_ptr<SystemInformation> system = makeSystemInformation();
};

// What a client is told of one program.
struct Told {
  std::optional<AudioApplication> application;  // nothing when the program is not listed
  std::optional<std::string> message;           // the standing one
  std::string error;                            // why there is no list; empty when there is one

  [[nodiscard]] double gain() const { return application ? application->gain : -1.0; }
};

// Runs `work` on the router's queue and waits for it.
template <class Result>
Result onQueue(const std::shared_ptr<AudioRouter>& router, const std::function<Result(AudioRouter&)>& work) {
  std::promise<Result> promise;
  router->queue()->submit([&] { promise.set_value(work(*router)); });
  return promise.get_future().get();
}

// Asks for the list, which is also the client's sign of life.
inline Told ask(const std::shared_ptr<AudioRouter>& router, const Player& player) {
  return onQueue<Told>(router, [&](AudioRouter& on) -> Told {
    try {
      const AudioRouter::Listing listing = on.applications();
      for (const AudioApplication& application : listing.applications) {
        for (const ProcessKey& key : application.processes) {
          if (key.pid == player.pid()) return {application, listing.message, {}};
        }
      }
      return {std::nullopt, listing.message, {}};
    } catch (const std::exception& error) {
      return {std::nullopt, std::nullopt, error.what()};
    }
  });
}

// Sets the program's gain; the error's text, empty on success.
inline std::string setGain(const std::shared_ptr<AudioRouter>& router, const Player& player, double gain) {
  const auto application = ask(router, player).application;
  if (!application) return "not listed";
  return onQueue<std::string>(router, [&](AudioRouter& on) -> std::string {
    try {
      on.setGain(gain, application->processes);
      return {};
    } catch (const std::exception& error) {
      return error.what();
    }
  });
}

// The gain at which the channel is heard now; -1 while nothing steady is.
inline double heardNow(const Listening& listening, unsigned channel = 0) {
  const std::size_t from = listening.frames();
  listening.recorder.waitSeconds(0.06);
  const auto measured = lab::measureSteadiness(listening.stretches(channel, from), 0, 2000);
  return measured.steadyFrames > 1500 ? measured.gain : -1.0;
}

// Whether the program comes to be heard at this gain.
inline bool becomes(const Listening& listening, double gain, unsigned channel = 0) {
  return eventually([&] { return std::abs(heardNow(listening, channel) - gain) < 1e-6; },
                    milliseconds{10'000});
}

}  // namespace monitor::platform::test
