// SPDX-License-Identifier: MIT
#include "MonitorCore/ProcessKey.h"

#include <gtest/gtest.h>

#include <limits>

namespace monitor {
namespace {

TEST(ProcessKeyTest, IdIsPidColonStartInDecimal) { EXPECT_EQ((ProcessKey{812, 5000}.id()), "812:5000"); }

TEST(ProcessKeyTest, NegativePidKeepsItsMinusSign) { EXPECT_EQ((ProcessKey{-1, 0}.id()), "-1:0"); }

TEST(ProcessKeyTest, LargestStartIsWrittenInFull) {
  EXPECT_EQ((ProcessKey{1, std::numeric_limits<std::uint64_t>::max()}.id()), "1:18446744073709551615");
}

TEST(ProcessKeyTest, TheLongestIdsAreWrittenInFull) {
  const ProcessKey key{std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::uint64_t>::max()};
  EXPECT_EQ(key.id(), "-2147483648:18446744073709551615");
  EXPECT_EQ(fallbackIdentity(key), "process:-2147483648:18446744073709551615");
}

TEST(ProcessKeyTest, EqualPidAndDifferentStartAreDifferentKeysWithDifferentHashes) {
  const ProcessKey first{7, 1};
  const ProcessKey second{7, 2};
  EXPECT_NE(first, second);
  EXPECT_NE(std::hash<ProcessKey>{}(first), std::hash<ProcessKey>{}(second));
}

TEST(ProcessKeyTest, FallbackIdentityIsPrefixedWithProcess) {
  EXPECT_EQ(fallbackIdentity({812, 5000}), "process:812:5000");
}

}  // namespace
}  // namespace monitor
