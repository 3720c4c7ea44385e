// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "MonitorMac/Ports/HostStatistics.h"

namespace monitor {

// Largest interface list that is believed; the buffer must be smaller.
inline constexpr std::size_t kRoutingBufferLimit = 16'000'000;

// Whether a size that the kernel announced for its interface list is worth a buffer.
[[nodiscard]] constexpr bool isPlausibleRoutingBufferSize(std::size_t size) {
  return size > 0 && size < kRoutingBufferLimit;
}

// Reads the interface counters out of a buffer of routing messages as the Mac's kernel writes them (little
// endian):
//
//   byte 0        2    3     8        12       96             104
//        | length | v | type | flags  | index  | bytes in     | bytes out     (a message of at least 160
//        bytes)
//
// Messages of other types are passed over; a message that would leave the buffer ends the walk. `nameOfIndex`
// gives an interface's name, or nothing for one that is gone. The kernel rounds both counters down to 1024
// and truncates them to 32 bits for ordinary programs: they wrap at 4 GiB, which a counter rate treats as one
// missing rate.
[[nodiscard]] std::vector<InterfaceCounter> interfaceCountersFromRoutingMessages(
    std::span<const std::byte> buffer,
    const std::function<std::optional<std::string>(std::uint32_t index)>& nameOfIndex);

}  // namespace monitor
