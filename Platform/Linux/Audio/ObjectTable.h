// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "MonitorCore/Ports/AudioHardware.h"
#include "Platform/Linux/Audio/DeviceObjects.h"
#include "Platform/Linux/Audio/PipeWireConnection.h"
#include "Platform/Linux/Audio/ProcessObjects.h"

namespace monitor::platform {

// Everything that property reads are answered from, at one moment. Never changed once it is published.
struct ObjectTable {
  PipeWireConnection::State state = PipeWireConnection::State::Connecting;
  std::vector<ProcessObject> processes;
  std::map<AudioObjectID, DeviceObject> devices;
  std::map<AudioObjectID, AudioStreamFormat> taps;
  std::map<AudioObjectID, std::string> aggregates;  // their uids
  AudioObjectID defaultDevice = 0;

  [[nodiscard]] const ProcessObject* process(AudioObjectID id) const;
  [[nodiscard]] bool exists(AudioObjectID id) const;
};

// The newest table. Any thread.
class PublishedTable {
 public:
  using Table = std::shared_ptr<const ObjectTable>;

  PublishedTable();
  void publish(ObjectTable table);
  [[nodiscard]] Table current() const;
  // The first table for which `settled` holds, or the newest one when `deadline` comes first.
  [[nodiscard]] Table waitFor(const std::function<bool(const ObjectTable&)>& settled,
                              std::chrono::steady_clock::time_point deadline) const;

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  Table table_;
};

}  // namespace monitor::platform
