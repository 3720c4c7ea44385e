// SPDX-License-Identifier: MIT
#include "MonitorMac/RoutingMessages.h"

#include <cstring>
#include <type_traits>

namespace monitor {
namespace {

constexpr std::size_t kSmallestMessage = 112;
constexpr std::size_t kInterfaceMessage = 160;
constexpr std::uint8_t kInterfaceInfo2 = 18;
constexpr std::int32_t kInterfaceUp = 1;

constexpr std::size_t kTypeOffset = 3;
constexpr std::size_t kFlagsOffset = 8;
constexpr std::size_t kIndexOffset = 12;
constexpr std::size_t kReceivedOffset = 96;
constexpr std::size_t kSentOffset = 104;

template <class T>
T read(std::span<const std::byte> message, std::size_t offset) {
  static_assert(std::is_trivially_copyable_v<T>);
  T value;
  std::memcpy(&value, message.data() + offset, sizeof value);
  return value;
}

}  // namespace

std::vector<InterfaceCounter> interfaceCountersFromRoutingMessages(
    std::span<const std::byte> buffer,
    const std::function<std::optional<std::string>(std::uint32_t index)>& nameOfIndex) {
  std::vector<InterfaceCounter> counters;
  std::size_t offset = 0;
  while (offset + kSmallestMessage <= buffer.size()) {
    const std::size_t length = read<std::uint16_t>(buffer, offset);
    if (length == 0 || offset + length > buffer.size()) break;
    const auto message = buffer.subspan(offset, length);
    offset += length;
    if (length < kInterfaceMessage || read<std::uint8_t>(message, kTypeOffset) != kInterfaceInfo2) continue;
    const auto name = nameOfIndex(read<std::uint16_t>(message, kIndexOffset));
    if (!name) continue;
    counters.push_back({*name, read<std::uint64_t>(message, kReceivedOffset),
                        read<std::uint64_t>(message, kSentOffset),
                        (read<std::int32_t>(message, kFlagsOffset) & kInterfaceUp) != 0});
  }
  return counters;
}

}  // namespace monitor
