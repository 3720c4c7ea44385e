// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Tools/AudioLab/ChildProcess.h"
#include "Tools/AudioLab/Recording.h"

namespace monitor::lab {

struct HardwareSinkOptions {
  std::string name = "lab-hardware";
  std::vector<std::string> positions = {"FL", "FR"};
  unsigned rate = 44'100;  // of the hardware side, which is 16-bit integer
  int priority = 3000;     // above the stack's own sinks, so that it becomes the default output
  double seconds = 20.0;   // room for the recording
};

// An output device whose hardware side differs from the graph's, as sound cards' do: 16-bit integer frames at
// a rate of its own, interleaved. The audio server converts, and what would be played is recorded here. It is
// clocked by the server. The device goes with the object. Any one thread may call.
class HardwareSink {
 public:
  // Returns when it is the default output, if `priority` makes it so, or else when it has its ports.
  explicit HardwareSink(const std::string& remote, HardwareSinkOptions options = {});
  ~HardwareSink();
  HardwareSink(const HardwareSink&) = delete;
  HardwareSink& operator=(const HardwareSink&) = delete;

  [[nodiscard]] std::size_t frames() const;  // given to the hardware so far
  void waitFrames(std::size_t more,
                  Milliseconds deadline = Milliseconds(10'000)) const;  // LabError at the deadline
  // As floats, full scale being 1. Without cycles, which the hardware side does not know.
  [[nodiscard]] Recording recording(std::size_t from = 0) const;

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace monitor::lab
