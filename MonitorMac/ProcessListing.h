// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

// Sizes of the buffers that a process listing needs, bounded so that a bogus answer cannot exhaust memory.
namespace monitor {

// Entries to make room for when the kernel announces `announced` processes: with slack for those that start
// between the two calls, and never more than 32768.
[[nodiscard]] constexpr std::size_t pidCapacity(std::int32_t announced) {
  constexpr std::int32_t kSmall = 768;
  constexpr std::int32_t kMost = 32'512;
  constexpr std::size_t kSmallCapacity = 1'024;
  constexpr std::size_t kSlack = 256;
  if (announced < kSmall) return kSmallCapacity;
  return static_cast<std::size_t>(std::min(announced, kMost)) + kSlack;
}

// Entries to make room for when the kernel announces `bytes` bytes of descriptors of 8 bytes each; 0 when the
// size is not believed.
[[nodiscard]] constexpr std::size_t descriptorCapacity(std::int32_t bytes) {
  constexpr std::int32_t kLimit = 4'000'000;
  constexpr std::size_t kSlack = 16;
  if (bytes < 1 || bytes >= kLimit) return 0;
  return static_cast<std::size_t>(bytes) / 8 + kSlack;
}

}  // namespace monitor
