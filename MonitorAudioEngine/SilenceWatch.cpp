// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/SilenceWatch.h"

#include <cstddef>

#include "MonitorAudioEngine/MonitorGainKernel.h"

namespace monitor {
namespace {

bool isSilent(const MonitorAudioBuffer& buffer) noexcept {
  const auto* samples = static_cast<const gain::Sample*>(buffer.mData);
  if (samples == nullptr) return true;
  const std::size_t count = buffer.mDataByteSize / sizeof(float);
  for (std::size_t sample = 0; sample < count; ++sample) {
    if (samples[sample] != 0.0F) return false;
  }
  return true;
}

}  // namespace

void SilenceWatch::listen(const MonitorAudioBufferList& input) noexcept {
  if (heardSound()) return;
  const MonitorAudioBuffer* buffers = input.mBuffers;
  for (std::size_t index = 0; index < input.mNumberBuffers; ++index) {
    if (isSilent(buffers[index])) continue;
    heard_.store(true, std::memory_order_relaxed);
    return;
  }
}

}  // namespace monitor
