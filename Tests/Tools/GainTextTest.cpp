// SPDX-License-Identifier: MIT
#include "Tools/vesk/GainText.h"

#include <gmock/gmock.h>

#include <clocale>
#include <cmath>
#include <locale>
#include <string>

#include "Tools/vesk/ExitCode.h"

namespace monitor::vesk {
namespace {

using testing::HasSubstr;

std::string refusal(std::string_view text) {
  try {
    const double gain = parseGain(text);
    ADD_FAILURE() << '"' << text << "\" was read as " << gain;
    return {};
  } catch (const CommandError& error) {
    EXPECT_EQ(error.code(), ExitCode::Usage);
    return error.what();
  }
}

TEST(GainText, ReadsLinearNumbers) {
  EXPECT_EQ(parseGain("0"), 0.0);
  EXPECT_EQ(parseGain("0.4"), 0.4);
  EXPECT_EQ(parseGain(".5"), 0.5);
  EXPECT_EQ(parseGain("1"), 1.0);
  EXPECT_EQ(parseGain("1.000"), 1.0);
  EXPECT_EQ(parseGain("1e-3"), 0.001);
  EXPECT_EQ(parseGain("+0.25"), 0.25);
}

TEST(GainText, ReadsPercent) {
  EXPECT_EQ(parseGain("40%"), 0.4);
  EXPECT_EQ(parseGain(" 40 %"), 0.4);
  EXPECT_EQ(parseGain("0%"), 0.0);
  EXPECT_EQ(parseGain("100%"), 1.0);
  EXPECT_EQ(parseGain("12.5%"), 0.125);
}

TEST(GainText, ReadsDecibelsAsTenToTheTwentieth) {
  EXPECT_DOUBLE_EQ(parseGain("-8dB"), std::pow(10.0, -0.4));
  EXPECT_DOUBLE_EQ(parseGain("-20 dB"), 0.1);
  EXPECT_DOUBLE_EQ(parseGain("-6db"), std::pow(10.0, -0.3));
  EXPECT_EQ(parseGain("0dB"), 1.0);
  EXPECT_EQ(parseGain("-0dB"), 1.0);
  EXPECT_EQ(parseGain("+0DB"), 1.0);
}

TEST(GainText, NeverGivesNegativeZero) {
  EXPECT_FALSE(std::signbit(parseGain("-0")));
  EXPECT_FALSE(std::signbit(parseGain("-0%")));
}

TEST(GainText, RefusesWhatIsLouderThanNormalPlayback) {
  EXPECT_THAT(refusal("+3dB"), HasSubstr("louder than normal playback"));
  EXPECT_THAT(refusal("0.1dB"), HasSubstr("louder than normal playback"));
  EXPECT_THAT(refusal("101%"), HasSubstr("louder than normal playback"));
  EXPECT_THAT(refusal("100.0001%"), HasSubstr("louder than normal playback"));
  EXPECT_THAT(refusal("1000"), HasSubstr("louder than normal playback"));
}

TEST(GainText, SuggestsTheUnitThatWasForgotten) {
  EXPECT_THAT(refusal("40"), HasSubstr("Did you mean 40%?"));
  EXPECT_THAT(refusal("1.5"), HasSubstr("Did you mean 1.5%?"));
  EXPECT_THAT(refusal("-8"), HasSubstr("Did you mean -8dB?"));
}

TEST(GainText, RefusesNegativePercent) {
  EXPECT_THAT(refusal("-40%"), HasSubstr("below 0"));
}

TEST(GainText, RefusesADecimalCommaWithAHint) {
  EXPECT_EQ(refusal("0,4"), "\"0,4\" has a comma. Write it with a point: 0.4");
  EXPECT_THAT(refusal("12,5%"), HasSubstr("Write it with a point: 12.5%"));
  EXPECT_THAT(refusal("a,b"), HasSubstr("is not a gain"));
}

TEST(GainText, RefusesWhatIsNoNumber) {
  for (const char* text : {"",     " ",          "nan", "inf",   "-inf dB", "infinity", "loud",  "dB",
                           "%",    "-",          "+",   "--8dB", "+-3dB",   "0x1p-1",   "0.4.1", "0.4 x",
                           "40%%", "40 percent", "1e",  "1e999", "4 0%",    "0.4\n",    "\xFF"}) {
    EXPECT_THAT(refusal(text), HasSubstr("is not a gain")) << text;
  }
}

struct DecimalComma : std::numpunct<char> {
  [[nodiscard]] char do_decimal_point() const override { return ','; }
};

TEST(GainText, DoesNotDependOnTheLocale) {
  const std::locale streamsBefore =
      std::locale::global(std::locale(std::locale::classic(), new DecimalComma));
  // The C library's locale too, where one with a comma is installed.
  const std::string before = std::setlocale(LC_NUMERIC, nullptr);
  std::setlocale(LC_NUMERIC, "de_DE.UTF-8");
  EXPECT_EQ(parseGain("0.4"), 0.4);
  EXPECT_EQ(percentText(0.398), "39.8 %");
  EXPECT_EQ(decibelText(0.4), "-8.0 dB");
  std::setlocale(LC_NUMERIC, before.c_str());
  std::locale::global(streamsBefore);
}

TEST(GainText, WritesPercentWithoutRoundingToAnEnd) {
  EXPECT_EQ(percentText(0.0), "0 %");
  EXPECT_EQ(percentText(0.4), "40 %");
  EXPECT_EQ(percentText(0.398107), "39.8 %");
  EXPECT_EQ(percentText(1e-9), "<0.1 %");
  EXPECT_EQ(percentText(0.9999), ">99.9 %");
  EXPECT_EQ(percentText(1.0), "100 %");
}

TEST(GainText, WritesDecibels) {
  EXPECT_EQ(decibelText(0.4), "-8.0 dB");
  EXPECT_EQ(decibelText(1.0), "0.0 dB");
  EXPECT_EQ(decibelText(0.0), "silent");
}

}  // namespace
}  // namespace monitor::vesk
