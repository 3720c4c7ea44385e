// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "Tools/AudioLab/Recording.h"
#include "Tools/Demo/Figures.h"

namespace monitor::demo {

// When the demonstration did what, in CLOCK_MONOTONIC nanoseconds.
struct Timeline {
  struct Request {
    std::uint64_t command = 0;  // `vesk gain … 40%` started
    std::uint64_t request = 0;  // … and its request passed the bus
  };
  // Two at least, each from normal playback. After the first come the change and the stop.
  std::vector<Request> takeovers;
  std::uint64_t changeCommand = 0;  // `vesk gain … 80%`
  std::uint64_t stopCommand = 0;    // `vesk stop …`
  std::uint64_t killed = 0;         // kill -9 of the service
};

// Reads all figures off the recording, in which the routed program and the other one have a channel each.
// Pure. lab::LabError when the recording does not show what the timeline says (the program never got to 40 %,
// …).
[[nodiscard]] Figures measure(const lab::Recording& recording, const Timeline& timeline,
                              std::size_t routedChannel, std::size_t otherChannel);

}  // namespace monitor::demo
