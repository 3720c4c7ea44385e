// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace monitor::lab {

// One cycle of the audio graph as the recorder met it.
struct RecordedCycle {
  std::size_t firstFrame = 0;  // index in the recording
  std::uint32_t frames = 0;
  std::uint64_t position =
      0;  // of the graph's clock, in frames; a jump means that the recorder missed cycles
  std::uint64_t nanoseconds = 0;  // CLOCK_MONOTONIC at the cycle's begin
};

// What a device was given to play, channel by channel.
struct Recording {
  unsigned rate = 48000;
  std::vector<std::vector<float>> channels;
  std::vector<RecordedCycle> cycles;

  [[nodiscard]] std::size_t frames() const { return channels.empty() ? 0 : channels.front().size(); }
  // Cycles of the graph before frame `end` that went by without being recorded, as frames: nonzero makes gaps
  // unjudgeable.
  [[nodiscard]] std::uint64_t missedFrames(std::size_t end = SIZE_MAX) const;
  // The CLOCK_MONOTONIC time at which the cycle with this frame began; nothing past the end.
  [[nodiscard]] std::optional<std::uint64_t> timeOf(std::size_t frame) const;
  // The first frame of the first cycle that began at `nanoseconds` or later; frames() if there is none.
  [[nodiscard]] std::size_t frameAt(std::uint64_t nanoseconds) const;
};

}  // namespace monitor::lab
