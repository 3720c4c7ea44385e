// SPDX-License-Identifier: MIT
#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "MonitorAudioEngine/AudioRouteError.h"
#include "MonitorAudioEngine/AudioRouter.h"
#include "Tests/Fakes/FakeAudioWorld.h"

namespace monitor::testing_support {

inline constexpr std::int32_t kOwnPid = 99;
inline constexpr std::uint32_t kUser = 501;
// Just past a bound. A power of two, so that times add up exactly.
inline constexpr double kMoment = 0x1p-20;

using fakes::keyOf;

// One router and everything around it, on virtual time.
struct RouterWorld : fakes::FakeAudioWorld {
  SilenceWatch* const silence;  // of all routers here; null is the rule turned off
  std::shared_ptr<AudioRouter> router;

  explicit RouterWorld(SilenceWatch* watch = nullptr) : silence(watch) {
    system.process = kOwnPid;
    system.user = kUser;
    router = makeRouter();
    time.run();
    hardware.forgetCalls();
  }
  ~RouterWorld() {
    router.reset();
    time.run();
  }

  std::shared_ptr<AudioRouter> makeRouter() {
    return AudioRouter::make(
        {hardware.openView(), queues, clock, processes, bundles, system, makeUuid(), silence});
  }

  void setRunning(std::int32_t pid, bool running) {
    hardware.setRunning(hardware.processOf(pid), running);
    time.run();
  }
  // The program disconnects from the audio system, and ends.
  void leave(std::int32_t pid) {
    processes.end(pid);
    hardware.removeProcess(hardware.processOf(pid));
    time.run();
  }

  void onQueue(std::function<void()> action) {
    router->queue()->submit(std::move(action));
    time.run();
  }
  std::optional<AudioRouteError> setGain(double gain, const std::vector<ProcessKey>& keys) {
    std::optional<AudioRouteError> refusal;
    onQueue([&] {
      try {
        router->setGain(gain, keys);
      } catch (const AudioRouteError& error) {
        refusal = error;
      }
    });
    return refusal;
  }
  std::optional<AudioRouteError> setGain(double gain, std::int32_t pid) {
    return setGain(gain, std::vector{keyOf(pid)});
  }
  void stop() {
    onQueue([this] { router->stop(); });
  }
  AudioRouter::Listing list() {
    AudioRouter::Listing listing;
    onQueue([&] { listing = router->applications(); });
    return listing;
  }
  std::optional<std::string> message() { return list().message; }
  AudioFailure lastCause() {
    AudioFailure cause;
    onQueue([&] { cause = router->lastCause(); });
    return cause;
  }

  // Time passes while running programs render.
  void playFor(double seconds) {
    for (double passed = 0.0; passed < seconds; passed += 0.25) {
      hardware.runCycles();
      time.advance(0.25);
    }
  }
  // The same, with a client that asks for the list.
  void listenFor(double seconds) {
    for (double passed = 0.0; passed < seconds; passed += 1.0) {
      (void)list();
      playFor(1.0);
    }
  }

  // Nothing half built: a tap, a device and a running procedure for each route, and nothing else.
  void expectWholeRoutes(std::size_t count) {
    EXPECT_EQ(hardware.taps().size(), count);
    EXPECT_EQ(hardware.aggregates().size(), count);
    EXPECT_EQ(hardware.procedures(), count);
    EXPECT_EQ(hardware.runningProcedures(), count);
  }
};

}  // namespace monitor::testing_support
