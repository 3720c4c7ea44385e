// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "MonitorCore/Ports/AudioBufferList.h"
#include "MonitorCore/Ports/AudioHardware.h"

namespace monitor::platform {

// One route's whole realtime callback: gathers the program's streams from their slots, sums those whose gates
// are open, and has the I/O block write the outputs. Free of the audio server, so that a test can drive it.
//
// Threads: cycle() on one realtime thread; it neither allocates nor locks nor logs nor calls the system.
// Everything else on one control thread. They share only atomics: a slot is published once and stays, gates
// and the block may change at any time.
//
// Denormal samples cost time only in the cycle that brings them: nothing here feeds back.
class RouteMixer {
 public:
  // A port as the owner of the buffers knows it, and its buffer for this cycle; null when it has none.
  // Realtime.
  using Port = void*;
  using BufferOf = void* (*)(Port port, std::uint32_t frames);

  static constexpr std::size_t kMostSlots = 1024;
  static constexpr std::uint32_t kMostFrames = 8192;  // the longest cycle that the audio server makes

  RouteMixer(std::size_t channels, BufferOf bufferOf);

  [[nodiscard]] std::size_t channels() const { return channels_; }
  // REQUIRES: called once for each channel, before the first cycle.
  void setOutput(std::size_t channel, Port port) { outputs_[channel] = port; }
  // A slot with a closed gate and one port for each channel; its number. REQUIRES: slotCount() < kMostSlots.
  std::size_t addSlot(std::vector<Port> ports);
  [[nodiscard]] std::size_t slotCount() const { return count_.load(std::memory_order_relaxed); }
  void setGate(std::size_t slot, bool open);
  [[nodiscard]] bool gate(std::size_t slot) const;

  // The block that the cycles run from now on; without one the outputs are silent.
  void attach(std::shared_ptr<const AudioIOBlock> block);
  // After true the block that was attached is never entered again, and this no longer holds it. False when a
  // cycle did not end in about half a second of running time; the block is then kept until the mixer goes.
  bool detach();

  // Cycles that ran the block.
  [[nodiscard]] std::uint64_t rendered() const { return rendered_.load(std::memory_order_relaxed); }

  // One cycle of that many frames. Realtime.
  void cycle(std::uint32_t frames) noexcept;

 private:
  struct Slot {
    std::vector<Port> ports;
    std::atomic<bool> open{false};
  };
  // Room for an AudioBufferList with one buffer for each channel.
  class Buffers {
   public:
    explicit Buffers(std::size_t channels);
    [[nodiscard]] MonitorAudioBufferList* list() {
      return reinterpret_cast<MonitorAudioBufferList*>(room_.data());
    }
    [[nodiscard]] MonitorAudioBuffer& operator[](std::size_t channel) { return list()->mBuffers[channel]; }

   private:
    std::vector<std::uint64_t> room_;  // aligned for pointers
  };

  bool gatherOutputs(std::uint32_t frames) noexcept;
  void gatherInputs(std::uint32_t frames) noexcept;
  void addToMix(std::size_t channel, const float* samples, std::uint32_t frames) noexcept;
  void silenceOutputs() noexcept;

  std::size_t channels_;
  BufferOf bufferOf_;
  std::vector<Port> outputs_;
  std::vector<std::unique_ptr<Slot>> owned_;
  std::array<Slot*, kMostSlots> slots_{};
  std::atomic<std::size_t> count_{0};

  std::shared_ptr<const AudioIOBlock> held_;
  std::vector<std::shared_ptr<const AudioIOBlock>> stuck_;
  std::atomic<const AudioIOBlock*> block_{nullptr};
  std::atomic<std::uint64_t> turns_{0};  // one more when a cycle begins and one more when it ends: odd inside
  std::atomic<std::uint64_t> rendered_{0};

  // Owned by the realtime thread.
  Buffers input_;
  Buffers output_;
  std::vector<float> silence_;             // shared by all channels without input; never written
  std::vector<std::vector<float>> mixed_;  // sums of two streams and more
  std::vector<std::size_t> contributions_;
};

}  // namespace monitor::platform
