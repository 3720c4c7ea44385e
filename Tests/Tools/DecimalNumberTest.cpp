// SPDX-License-Identifier: MIT
#include "Tools/vesk/DecimalNumber.h"

#include <gtest/gtest.h>

#include <string_view>

namespace monitor::vesk {
namespace {

struct Case {
  std::string_view text;
  double number = 0.0;
  std::string_view rest;
};

TEST(DecimalNumberTest, TakesTheLongestNumberAndLeavesTheRest) {
  const Case cases[] = {{"12", 12.0, ""},
                        {"-0.5", -0.5, ""},
                        {".5", 0.5, ""},
                        {"5.", 5.0, ""},
                        {"-.5x", -0.5, "x"},
                        {"1e-3", 0.001, ""},
                        {"1E+2%", 100.0, "%"},
                        {"1e", 1.0, "e"},
                        {"1e+", 1.0, "e+"},
                        {"0x1p-1", 0.0, "x1p-1"},
                        {"0.4.1", 0.4, ".1"},
                        {"12,5%", 12.0, ",5%"},
                        {"1.7976931348623157e308", 1.7976931348623157e308, ""},
                        {"0.1", 0.1, ""},
                        {"40 %", 40.0, " %"}};
  for (const Case& one : cases) {
    std::string_view text = one.text;
    EXPECT_EQ(takeDecimal(text), one.number) << one.text;
    EXPECT_EQ(text, one.rest) << one.text;
  }
}

TEST(DecimalNumberTest, WhatIsNoNumberIsLeftAsItIs) {
  for (const std::string_view none :
       {"", "-", "+1", ".", "-.", "e5", "inf", "nan", " 1", "--1", "1e999", "-1e999"}) {
    std::string_view text = none;
    EXPECT_EQ(takeDecimal(text), std::nullopt) << none;
    EXPECT_EQ(text, none);
  }
}

}  // namespace
}  // namespace monitor::vesk
