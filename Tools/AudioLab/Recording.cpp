// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/Recording.h"

#include <algorithm>

namespace monitor::lab {

std::uint64_t Recording::missedFrames(std::size_t end) const {
  std::uint64_t missed = 0;
  for (std::size_t i = 1; i < cycles.size() && cycles[i].firstFrame < end; ++i) {
    const std::uint64_t expected = cycles[i - 1].position + cycles[i - 1].frames;
    if (cycles[i].position > expected) missed += cycles[i].position - expected;
  }
  return missed;
}

std::optional<std::uint64_t> Recording::timeOf(std::size_t frame) const {
  if (frame >= frames()) return std::nullopt;
  const auto after =
      std::upper_bound(cycles.begin(), cycles.end(), frame,
                       [](std::size_t wanted, const auto& cycle) { return wanted < cycle.firstFrame; });
  if (after == cycles.begin()) return std::nullopt;
  return std::prev(after)->nanoseconds;
}

std::size_t Recording::frameAt(std::uint64_t nanoseconds) const {
  const auto found =
      std::lower_bound(cycles.begin(), cycles.end(), nanoseconds,
                       [](const auto& cycle, std::uint64_t wanted) { return cycle.nanoseconds < wanted; });
  return found == cycles.end() ? frames() : found->firstFrame;
}

}  // namespace monitor::lab
