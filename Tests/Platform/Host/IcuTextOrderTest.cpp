// SPDX-License-Identifier: MIT
#include "Platform/Linux/Host/IcuTextOrder.h"

#include <gtest/gtest.h>

namespace monitor::platform {
namespace {

TEST(IcuTextOrderTest, NumbersCountByValue) {
  const auto order = makeTextOrder();
  EXPECT_TRUE(order->precedes("App 2", "App 10"));
  EXPECT_FALSE(order->precedes("App 10", "App 2"));
}

TEST(IcuTextOrderTest, LetterCaseIsIgnored) {
  const auto order = makeTextOrder();
  EXPECT_FALSE(order->precedes("player", "Player"));
  EXPECT_FALSE(order->precedes("Player", "player"));
  EXPECT_TRUE(order->precedes("alpha", "Beta"));
  EXPECT_TRUE(order->precedes("Alpha", "beta"));
}

TEST(IcuTextOrderTest, AccentedLettersStandByTheirBaseLetter) {
  const auto order = makeTextOrder();
  EXPECT_TRUE(
      order->precedes("\xC3\x89"
                      "cho",
                      "Fox"));
}

}  // namespace
}  // namespace monitor::platform
