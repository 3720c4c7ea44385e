// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "MonitorCore/Ports/AudioHardware.h"

namespace monitor::platform::test {

using std::chrono::milliseconds;

// Asks until the answer is yes; false at the deadline.
inline bool eventually(const std::function<bool()>& condition, milliseconds deadline = milliseconds{10'000}) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(milliseconds{2});
  }
  return true;
}

// Property reads as a test wants them.
class HardwareView {
 public:
  explicit HardwareView(std::shared_ptr<AudioHardware> view) : hardware(std::move(view)) {}

  template <typename Value>
  [[nodiscard]] std::optional<Value> read(AudioObjectID object, const AudioObjectAddress& address) const {
    Value value{};
    std::uint32_t size = 0;
    const auto status =
        hardware->propertyData(object, address, std::as_writable_bytes(std::span{&value, 1}), size);
    return status == 0 && size == sizeof value ? std::optional{value} : std::nullopt;
  }
  // The process objects; nothing when the list cannot be read.
  [[nodiscard]] std::optional<std::vector<AudioObjectID>> processes() const {
    std::uint32_t size = 0;
    if (hardware->propertyDataSize(audio::kSystemObject, audio::kProcessObjectList, size) != 0)
      return std::nullopt;
    std::vector<AudioObjectID> ids(size / sizeof(AudioObjectID));
    if (hardware->propertyData(audio::kSystemObject, audio::kProcessObjectList,
                               std::as_writable_bytes(std::span{ids}), size) != 0) {
      return std::nullopt;
    }
    ids.resize(size / sizeof(AudioObjectID));
    return ids;
  }
  // 0 when the process has no object.
  [[nodiscard]] AudioObjectID processOf(std::int32_t pid) const {
    for (const AudioObjectID id : processes().value_or(std::vector<AudioObjectID>{})) {
      if (read<std::int32_t>(id, audio::kProcessPID) == pid) return id;
    }
    return 0;
  }
  [[nodiscard]] bool running(std::int32_t pid) const {
    return read<std::uint32_t>(processOf(pid), audio::kProcessIsRunningOutput) == 1U;
  }
  [[nodiscard]] AudioObjectID defaultDevice() const {
    return read<AudioObjectID>(audio::kSystemObject, audio::kDefaultOutputDevice).value_or(0);
  }
  [[nodiscard]] std::string uid(AudioObjectID device) const {
    std::optional<std::string> value;
    return hardware->propertyString(device, audio::kDeviceUID, value) == 0 ? value.value_or("") : "";
  }

  std::shared_ptr<AudioHardware> hardware;
};

}  // namespace monitor::platform::test
