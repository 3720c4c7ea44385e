// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/StoppableBlock.h"

#include <chrono>
#include <cstring>
#include <thread>

namespace monitor::platform {

namespace {

constexpr std::chrono::microseconds kBetweenLooks{50};
constexpr int kMostLooks = 1000;  // a tenth of a second, with what the kernel adds to each sleep

void silence(MonitorAudioBufferList* list) noexcept {
  auto* buffers = static_cast<MonitorAudioBuffer*>(list->mBuffers);
  for (std::uint32_t index = 0; index < list->mNumberBuffers; ++index) {
    std::memset(buffers[index].mData, 0, buffers[index].mDataByteSize);
  }
}

}  // namespace

void StoppableBlock::run(const MonitorAudioBufferList* input, MonitorAudioBufferList* output) noexcept {
  turns_.fetch_add(1);
  if (stopped_.load()) {
    silence(output);
  } else {
    block_(input, output);
  }
  turns_.fetch_add(1, std::memory_order_release);
}

bool StoppableBlock::stop() {
  stopped_.store(true);
  // A run that began later sees the block stopped: both sides use the one total order of sequential
  // consistency.
  const std::uint64_t turn = turns_.load();
  const bool inside = turn % 2 == 1;
  for (int look = 0; inside && turns_.load() == turn; ++look) {
    if (look == kMostLooks) return false;
    std::this_thread::sleep_for(kBetweenLooks);
  }
  return true;
}

}  // namespace monitor::platform
