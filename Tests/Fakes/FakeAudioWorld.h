// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "MonitorCore/Ports/Time.h"
#include "MonitorCore/ProcessKey.h"
#include "Tests/Fakes/FakeApplicationBundles.h"
#include "Tests/Fakes/FakeAudioHardware.h"
#include "Tests/Fakes/FakeProcessTable.h"
#include "Tests/Fakes/FakeSystemInformation.h"
#include "Tests/Fakes/VirtualTime.h"

namespace monitor::fakes {

// The key of a program that play() started.
inline ProcessKey keyOf(std::int32_t pid) {
  return {pid, static_cast<std::uint64_t>(pid) * 1000};
}

// Everything around the audio engine, on virtual time.
struct FakeAudioWorld {
  VirtualTime time;
  FakeClock clock{time};
  FakeQueueFactory queues{time};
  FakeAudioHardware hardware;
  FakeProcessTable processes;
  FakeApplicationBundles bundles;
  FakeSystemInformation system;
  int uuids = 0;

  FakeAudioWorld() = default;
  FakeAudioWorld(const FakeAudioWorld&) = delete;
  FakeAudioWorld& operator=(const FakeAudioWorld&) = delete;

  // "uuid-1", "uuid-2" and so on.
  UuidSource makeUuid() {
    return [this] { return "uuid-" + std::to_string(++uuids); };
  }
  // A program starts and uses audio. Its process object.
  AudioObjectID play(std::int32_t pid, const std::string& bundleID = {}, bool running = true) {
    processes.add(keyOf(pid), "/usr/bin/player" + std::to_string(pid), system.user);
    const AudioObjectID object = hardware.addProcess(pid, running, bundleID);
    time.run();
    return object;
  }
  AudioObjectID routeOf(std::int32_t pid) { return hardware.routeOf(hardware.processOf(pid)); }
  // What a program's ones sound like in the end.
  float level(std::int32_t pid) {
    const StereoBlock ones{{1.0F}, {1.0F}};
    const AudioObjectID device = routeOf(pid);
    if (device == 0) return 1.0F;
    (void)hardware.runCycle(device, ones);  // a new gain is reached by the end of a buffer
    return hardware.runCycle(device, ones)->left[0];
  }
};

}  // namespace monitor::fakes
