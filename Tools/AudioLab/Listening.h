// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>

#include "Tools/AudioLab/ChildProcess.h"
#include "Tools/AudioLab/Recorder.h"

namespace monitor::lab {

struct Heard {
  std::size_t first = 0;  // frame of the recorder at which the gain was reached
  double gain = 0.0;      // exactly
  // Silence on the channel between the wait's first frame and `first`.
  std::size_t silentFrames = 0;
};

// Waits until the channel plays the counter signal at `gain` (within a millionth) for `shortest` frames in a
// row, in what was recorded from frame `from` on. Nothing when that is not heard by the deadline.
[[nodiscard]] std::optional<Heard> waitForGain(const Recorder& recorder, std::size_t channel, double gain,
                                               std::size_t from, Milliseconds deadline = Milliseconds(5000),
                                               std::size_t shortest = 512);

}  // namespace monitor::lab
