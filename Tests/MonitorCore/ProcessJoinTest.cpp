// SPDX-License-Identifier: MIT
#include "MonitorCore/ProcessJoin.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

namespace monitor {
namespace {

constexpr std::uint64_t kStart = 1'731'700'000'000'000;
constexpr std::uint64_t kSecond = 1'000'000;

AdvancedProcessReading reading(std::int32_t pid, std::uint64_t start, double energy = 1.0) {
  return {{pid, start}, 10.0, 20.0, energy};
}

ProcessIdentities identities(const std::vector<ProcessKey>& keys) {
  ProcessIdentities known;
  for (const ProcessKey& key : keys) known.emplace(key.pid, key);
  return known;
}

std::vector<ProcessKey> joined(const std::vector<AdvancedProcessReading>& readings,
                               const std::vector<ProcessKey>& known) {
  std::vector<ProcessKey> keys;
  for (const auto& reading : underKnownKeys(readings, identities(known))) keys.push_back(reading.key);
  return keys;
}

TEST(ProcessJoin, SameBootTimeKeepsTheKeys) {
  EXPECT_EQ(joined({reading(7, kStart), reading(8, kStart + 10'000)}, {{8, kStart + 10'000}, {7, kStart}}),
            (std::vector<ProcessKey>{{7, kStart}, {8, kStart + 10'000}}));
}

TEST(ProcessJoin, ConstantOffsetOfTheBootTimesIsTakenOut) {
  for (const std::uint64_t offset : {kSecond, 0 - kSecond, 86'400 * kSecond, 0 - 86'400 * kSecond}) {
    EXPECT_EQ(joined({reading(7, kStart + offset), reading(8, kStart + 30'000 + offset)},
                     {{7, kStart}, {8, kStart + 30'000}}),
              (std::vector<ProcessKey>{{7, kStart}, {8, kStart + 30'000}}));
  }
}

TEST(ProcessJoin, PidThatWasTakenOverIsAnotherProcess) {
  // Started four seconds later than the process that the helper measured.
  EXPECT_EQ(joined({reading(7, kStart + kSecond), reading(8, kStart + kSecond), reading(9, kStart + kSecond)},
                   {{7, kStart}, {8, kStart}, {9, kStart + 4 * kSecond}}),
            (std::vector<ProcessKey>{{7, kStart}, {8, kStart}}));
}

TEST(ProcessJoin, OffsetThatIsNotWholeSecondsIsAnotherProcess) {
  EXPECT_TRUE(joined({reading(7, kStart + 10'000)}, {{7, kStart}}).empty());
  EXPECT_EQ(joined({reading(7, kStart + kSecond)}, {{7, kStart}}).size(), 1U);
  EXPECT_TRUE(joined({reading(7, kStart + kSecond + 1)}, {{7, kStart}}).empty());
}

TEST(ProcessJoin, TieGoesToTheSmallerOffset) {
  EXPECT_EQ(joined({reading(7, kStart + 3 * kSecond), reading(8, kStart)}, {{7, kStart}, {8, kStart}}),
            (std::vector<ProcessKey>{{8, kStart}}));
  EXPECT_EQ(joined({reading(7, kStart + 3 * kSecond), reading(8, kStart - 2 * kSecond)},
                   {{7, kStart}, {8, kStart}}),
            (std::vector<ProcessKey>{{8, kStart}}));
}

TEST(ProcessJoin, UnknownPidIsLeftOut) {
  EXPECT_TRUE(joined({reading(7, kStart)}, {}).empty());
  EXPECT_TRUE(joined({}, {{7, kStart}}).empty());
  EXPECT_EQ(joined({reading(7, kStart), reading(8, kStart)}, {{8, kStart}}),
            (std::vector<ProcessKey>{{8, kStart}}));
}

TEST(ProcessJoin, StartsAtTheEndsOfTheRangeDoNotOverflow) {
  constexpr auto kLast = std::numeric_limits<std::uint64_t>::max();
  EXPECT_TRUE(joined({reading(7, kLast)}, {{7, 0}}).empty());
  EXPECT_TRUE(joined({reading(7, 0)}, {{7, kLast}}).empty());
  EXPECT_TRUE(joined({reading(7, std::uint64_t{1} << 63U)}, {{7, 0}}).empty());
}

}  // namespace
}  // namespace monitor
