// SPDX-License-Identifier: MIT
#include "Platform/Linux/Base/RandomUuid.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace monitor::platform {
namespace {

TEST(RandomUuid, HasTheTextFormOfARandomUuid) {
  const std::string uuid = randomUuid();
  ASSERT_EQ(uuid.size(), 36U) << uuid;
  for (std::size_t i = 0; i < uuid.size(); ++i) {
    const char c = uuid[i];
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      EXPECT_EQ(c, '-') << uuid;
    } else {
      EXPECT_TRUE((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F')) << uuid;
    }
  }
  EXPECT_EQ(uuid[14], '4') << uuid;
  EXPECT_NE(std::string("89AB").find(uuid[19]), std::string::npos) << uuid;
}

TEST(RandomUuid, IsNewEveryTime) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) seen.insert(randomUuid());
  EXPECT_EQ(seen.size(), 1000U);
}

}  // namespace
}  // namespace monitor::platform
