// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "MonitorCore/Ports/AudioBufferList.h"

namespace monitor::test {

// A buffer list of any length in memory of its own, laid out as the C structure promises.
class BufferList {
 public:
  explicit BufferList(const std::vector<MonitorAudioBuffer>& buffers)
      : memory_((sizeof(MonitorAudioBufferList) + buffers.size() * sizeof(MonitorAudioBuffer)) /
                sizeof(std::uint64_t)) {
    auto* start = reinterpret_cast<unsigned char*>(memory_.data());
    const auto count = static_cast<std::uint32_t>(buffers.size());
    std::memcpy(start, &count, sizeof count);
    if (!buffers.empty()) {
      std::memcpy(start + offsetof(MonitorAudioBufferList, mBuffers), buffers.data(),
                  buffers.size() * sizeof(MonitorAudioBuffer));
    }
  }

  [[nodiscard]] MonitorAudioBufferList* get() {
    return reinterpret_cast<MonitorAudioBufferList*>(memory_.data());
  }

 private:
  std::vector<std::uint64_t> memory_;
};

inline MonitorAudioBuffer bufferOf(std::uint32_t channels, std::span<float> samples) {
  return {channels, static_cast<std::uint32_t>(samples.size_bytes()), samples.data()};
}

}  // namespace monitor::test
