// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "MonitorCore/Ports/AudioHardware.h"

namespace monitor::platform {

// An I/O block that any thread can stop for good. Its owner may free what the block works on as soon as the
// procedure was destroyed, whatever became of that call; but it is the loop thread that takes the block out
// of the route, and that thread may be late, or the call may have failed because the server is gone.
class StoppableBlock {
 public:
  explicit StoppableBlock(AudioIOBlock block) : block_(std::move(block)) {}

  // Realtime, one thread. Runs the block; a stopped one is silence.
  void run(const MonitorAudioBufferList* input, MonitorAudioBufferList* output) noexcept;
  // Any thread. After true the block is never entered again. False when a run under way has not ended in
  // about a tenth of a second; none begins after that one.
  bool stop();

 private:
  AudioIOBlock block_;
  std::atomic<bool> stopped_{false};
  std::atomic<std::uint64_t> turns_{0};  // odd inside a run
};

}  // namespace monitor::platform
