// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace monitor::lab {

// What every laboratory player plays: a saw of 4096 frames, s(n) = ((n mod 4096) + 1) / 8192. All its values
// are exact in 32-bit float, none is zero, and two neighbours give both the gain (their difference) and the
// frame's number (value over difference): a recording shows for each frame which frame of the program it is,
// and how loud.
inline constexpr std::uint32_t kCounterPeriod = 4096;
inline constexpr float kCounterStep = 1.0F / 8192.0F;

[[nodiscard]] constexpr float counterValue(std::uint64_t frame) {
  return static_cast<float>(frame % kCounterPeriod + 1) * kCounterStep;
}

}  // namespace monitor::lab
