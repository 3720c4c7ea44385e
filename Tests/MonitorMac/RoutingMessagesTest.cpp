// SPDX-License-Identifier: MIT
#include "MonitorMac/RoutingMessages.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

namespace monitor {
namespace {

class RoutingBuffer {
 public:
  RoutingBuffer& message(std::uint16_t length, std::uint8_t type, std::int32_t flags, std::uint16_t index,
                         std::uint64_t received, std::uint64_t sent) {
    const std::size_t offset = bytes.size();
    bytes.resize(offset + length);
    put(offset, length);
    put(offset + 3, type);
    put(offset + 8, flags);
    put(offset + 12, index);
    if (length >= 112) {
      put(offset + 96, received);
      put(offset + 104, sent);
    }
    return *this;
  }
  std::vector<std::byte> bytes;

 private:
  template <class T>
  void put(std::size_t offset, T value) {
    std::memcpy(bytes.data() + offset, &value, sizeof value);
  }
};

std::vector<InterfaceCounter> walk(std::span<const std::byte> bytes) {
  return interfaceCountersFromRoutingMessages(bytes, [](std::uint32_t index) -> std::optional<std::string> {
    if (index == 99) return std::nullopt;
    return "en" + std::to_string(index);
  });
}

TEST(RoutingMessagesTest, TakesFlagsIndexAndBothCounters) {
  const auto counters = walk(RoutingBuffer().message(160, 18, 1, 4, 5'000'000'000, 7).bytes);
  ASSERT_EQ(counters.size(), 1U);
  EXPECT_EQ(counters[0].name, "en4");
  EXPECT_EQ(counters[0].received, 5'000'000'000U);
  EXPECT_EQ(counters[0].sent, 7U);
  EXPECT_TRUE(counters[0].up);
}

TEST(RoutingMessagesTest, OnlyTheUpBitOfTheFlagsCounts) {
  const auto counters =
      walk(RoutingBuffer().message(160, 18, 0x8842, 4, 1, 1).message(160, 18, 0x8843, 5, 1, 1).bytes);
  ASSERT_EQ(counters.size(), 2U);
  EXPECT_FALSE(counters[0].up);
  EXPECT_TRUE(counters[1].up);
}

TEST(RoutingMessagesTest, PassesOverMessagesOfOtherTypes) {
  EXPECT_EQ(walk(RoutingBuffer().message(160, 14, 1, 4, 1, 1).message(160, 18, 1, 5, 1, 1).bytes).size(), 1U);
}

TEST(RoutingMessagesTest, AnInterfaceMessageNeedsAtLeast160Bytes) {
  EXPECT_TRUE(walk(RoutingBuffer().message(159, 18, 1, 4, 1, 1).bytes).empty());
  EXPECT_EQ(walk(RoutingBuffer().message(160, 18, 1, 4, 1, 1).bytes).size(), 1U);
  EXPECT_EQ(walk(RoutingBuffer().message(161, 18, 1, 4, 1, 1).bytes).size(), 1U);
}

TEST(RoutingMessagesTest, StopsAtALengthOfZero) {
  auto buffer = RoutingBuffer().message(160, 18, 1, 4, 1, 1);
  buffer.bytes.resize(buffer.bytes.size() + 160);
  EXPECT_EQ(walk(buffer.bytes).size(), 1U);
}

TEST(RoutingMessagesTest, StopsAtAMessageThatLeavesTheBuffer) {
  auto buffer = RoutingBuffer().message(160, 18, 1, 4, 1, 1).message(160, 18, 1, 5, 1, 1);
  buffer.bytes.pop_back();
  EXPECT_EQ(walk(buffer.bytes).size(), 1U);
}

TEST(RoutingMessagesTest, StopsWhereFewerThan112BytesRemain) {
  auto buffer = RoutingBuffer().message(160, 18, 1, 4, 1, 1).message(111, 14, 0, 0, 0, 0);
  EXPECT_EQ(walk(buffer.bytes).size(), 1U);
  EXPECT_EQ(walk(RoutingBuffer().message(112, 14, 0, 0, 0, 0).message(160, 18, 1, 4, 1, 1).bytes).size(), 1U);
}

TEST(RoutingMessagesTest, SkipsAnInterfaceWithoutAName) {
  EXPECT_EQ(walk(RoutingBuffer().message(160, 18, 1, 99, 1, 1).message(160, 18, 1, 5, 1, 1).bytes).size(),
            1U);
}

TEST(RoutingMessagesTest, EmptyBufferHasNoInterfaces) {
  EXPECT_TRUE(walk({}).empty());
}

TEST(RoutingMessagesTest, BelievesSizesAboveZeroAndBelowSixteenMillion) {
  EXPECT_FALSE(isPlausibleRoutingBufferSize(0));
  EXPECT_TRUE(isPlausibleRoutingBufferSize(1));
  EXPECT_TRUE(isPlausibleRoutingBufferSize(15'999'999));
  EXPECT_FALSE(isPlausibleRoutingBufferSize(16'000'000));
}

}  // namespace
}  // namespace monitor
