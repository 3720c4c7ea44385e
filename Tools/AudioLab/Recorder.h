// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "Tools/AudioLab/ChildProcess.h"
#include "Tools/AudioLab/Recording.h"

namespace monitor::lab {

struct RecorderOptions {
  std::string sink = "lab-sink-a";
  double seconds = 60.0;  // room that is set aside; what comes later is not recorded
  // A passive recorder does not keep the device running: for tests of idle devices. Its recording has holes.
  bool passive = false;
};

// Records what a sink plays, from its monitor ports. A filter with links of its own, so that the session
// manager neither makes, moves nor cuts it; the data thread writes into memory that was set aside, so that no
// frame is lost however slow the rest of the test is. Any one thread may call.
class Recorder {
 public:
  // Returns when frames arrive. LabError when the sink is not there.
  explicit Recorder(const std::string& remote, RecorderOptions options = {});
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  [[nodiscard]] std::size_t frames() const;  // so far
  // Waits until that many more frames have arrived; LabError when they do not: the device does not run.
  void waitFrames(std::size_t more, Milliseconds deadline = Milliseconds(10'000)) const;
  // Waits for seconds of the device's own time.
  void waitSeconds(double seconds) const;
  // A copy of what has been recorded from frame `from` on. LabError when the room was too small.
  [[nodiscard]] Recording recording(std::size_t from = 0) const;

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

// CLOCK_MONOTONIC now, comparable with the recorded cycles' times.
[[nodiscard]] std::uint64_t monotonicNanoseconds();

}  // namespace monitor::lab
