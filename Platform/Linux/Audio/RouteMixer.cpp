// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/RouteMixer.h"

#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

namespace monitor::platform {

namespace {

constexpr std::chrono::microseconds kBetweenLooks{50};
constexpr int kMostLooks = 5000;  // half a second, with what the kernel adds to each sleep

}  // namespace

RouteMixer::Buffers::Buffers(std::size_t channels)
    : room_((offsetof(MonitorAudioBufferList, mBuffers) + channels * sizeof(MonitorAudioBuffer) +
             sizeof(std::uint64_t) - 1) /
            sizeof(std::uint64_t)) {
  list()->mNumberBuffers = static_cast<std::uint32_t>(channels);
}

RouteMixer::RouteMixer(std::size_t channels, BufferOf bufferOf)
    : channels_(channels),
      bufferOf_(bufferOf),
      outputs_(channels, nullptr),
      input_(channels),
      output_(channels),
      silence_(kMostFrames, 0.0F),
      mixed_(channels, std::vector<float>(kMostFrames, 0.0F)),
      contributions_(channels, 0) {}

std::size_t RouteMixer::addSlot(std::vector<Port> ports) {
  auto slot = std::make_unique<Slot>();
  slot->ports = std::move(ports);
  slot->ports.resize(channels_, nullptr);
  const std::size_t number = slotCount();
  slots_[number] = slot.get();
  owned_.push_back(std::move(slot));
  count_.store(number + 1, std::memory_order_release);
  return number;
}

void RouteMixer::setGate(std::size_t slot, bool open) {
  if (slot < slotCount()) slots_[slot]->open.store(open, std::memory_order_relaxed);
}

bool RouteMixer::gate(std::size_t slot) const {
  return slot < slotCount() && slots_[slot]->open.load(std::memory_order_relaxed);
}

void RouteMixer::attach(std::shared_ptr<const AudioIOBlock> block) {
  held_ = std::move(block);
  block_.store(held_.get());
}

bool RouteMixer::detach() {
  block_.store(nullptr);
  // A cycle that began later sees no block: both sides use the one total order of sequential consistency.
  // Looks are counted, not time: a program that was stopped inside a cycle must not give up before that cycle
  // has gone on.
  const std::uint64_t turn = turns_.load();
  const bool inside = turn % 2 == 1;
  for (int look = 0; inside && turns_.load() == turn; ++look) {
    if (look == kMostLooks) {
      stuck_.push_back(std::exchange(held_, nullptr));
      return false;
    }
    std::this_thread::sleep_for(kBetweenLooks);
  }
  held_.reset();
  return true;
}

void RouteMixer::cycle(std::uint32_t frames) noexcept {
  turns_.fetch_add(1);
  const AudioIOBlock* block = block_.load();
  const bool complete = gatherOutputs(frames);
  gatherInputs(frames);
  if (complete && frames > 0) {
    if (block != nullptr && frames <= kMostFrames) {
      (*block)(input_.list(), output_.list());
      rendered_.fetch_add(1, std::memory_order_relaxed);
    } else {
      silenceOutputs();
    }
  }
  turns_.fetch_add(1, std::memory_order_release);
}

bool RouteMixer::gatherOutputs(std::uint32_t frames) noexcept {
  bool complete = true;
  for (std::size_t channel = 0; channel < channels_; ++channel) {
    void* data = bufferOf_(outputs_[channel], frames);
    output_[channel] = {1, frames * static_cast<std::uint32_t>(sizeof(float)), data};
    complete = complete && data != nullptr;
  }
  return complete;
}

void RouteMixer::gatherInputs(std::uint32_t frames) noexcept {
  for (std::size_t channel = 0; channel < channels_; ++channel) {
    contributions_[channel] = 0;
    input_[channel] = {1, frames * static_cast<std::uint32_t>(sizeof(float)), silence_.data()};
  }
  const std::size_t count = count_.load(std::memory_order_acquire);
  for (std::size_t number = 0; number < count; ++number) {
    const Slot& slot = *slots_[number];
    const bool open = slot.open.load(std::memory_order_relaxed);
    for (std::size_t channel = 0; channel < channels_; ++channel) {
      // Asked for behind a closed gate too: a buffer that nobody takes stays in the port's queue.
      const auto* samples = static_cast<const float*>(bufferOf_(slot.ports[channel], frames));
      if (open && samples != nullptr && frames <= kMostFrames) addToMix(channel, samples, frames);
    }
  }
}

void RouteMixer::addToMix(std::size_t channel, const float* samples, std::uint32_t frames) noexcept {
  auto& buffer = input_[channel];
  switch (contributions_[channel]++) {
    case 0:
      // Read only: the block takes its input as const.
      buffer.mData = const_cast<float*>(samples);
      return;
    case 1: {
      float* sum = mixed_[channel].data();
      const auto* first = static_cast<const float*>(buffer.mData);
      for (std::uint32_t frame = 0; frame < frames; ++frame) sum[frame] = first[frame] + samples[frame];
      buffer.mData = sum;
      return;
    }
    default: {
      float* sum = mixed_[channel].data();
      for (std::uint32_t frame = 0; frame < frames; ++frame) sum[frame] += samples[frame];
      return;
    }
  }
}

void RouteMixer::silenceOutputs() noexcept {
  for (std::size_t channel = 0; channel < channels_; ++channel) {
    std::memset(output_[channel].mData, 0, output_[channel].mDataByteSize);
  }
}

}  // namespace monitor::platform
