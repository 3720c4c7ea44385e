// SPDX-License-Identifier: MIT
#include "Tools/vesk/TextWidth.h"

#include <gtest/gtest.h>

namespace monitor::vesk {
namespace {

TEST(TextWidth, CountsWideCharactersAsTwoCellsAndMarksAsNone) {
  EXPECT_EQ(textWidth(""), 0U);
  EXPECT_EQ(textWidth("Musik"), 5U);
  EXPECT_EQ(textWidth("Müsli"), 5U);
  EXPECT_EQ(textWidth("Mu\u0308sli"), 5U);
  EXPECT_EQ(textWidth("音楽"), 4U);
  EXPECT_EQ(textWidth("ＡＢ"), 4U);
  EXPECT_EQ(textWidth("🎧"), 2U);
  EXPECT_EQ(textWidth("a\u200Bb"), 2U);
}

TEST(TextWidth, ShortensOnCellBoundariesWithAnEllipsis) {
  EXPECT_EQ(shortened("Music", 5), "Music");
  EXPECT_EQ(shortened("Music", 4), "Mus…");
  EXPECT_EQ(shortened("音楽家", 6), "音楽家");
  EXPECT_EQ(shortened("音楽家", 5), "音楽…");
  EXPECT_EQ(shortened("音楽家", 4), "音…");
  EXPECT_EQ(shortened("音楽家", 1), "…");
  EXPECT_EQ(shortened("音楽家", 0), "");
}

TEST(TextWidth, KeepsMarksWithTheirCharacterWhenShortening) {
  EXPECT_EQ(shortened("u\u0308ber", 2), "u\u0308…");
  EXPECT_EQ(shortened("bu\u0308r", 2), "b…");
}

TEST(TextWidth, PrintableReplacesWhatCouldChangeTheScreen) {
  const std::string mark = "\xEF\xBF\xBD";
  EXPECT_EQ(printable("plain 音楽 🎧"), "plain 音楽 🎧");
  EXPECT_EQ(printable("\x1b]0;title\x07"), mark + "]0;title" + mark);
  EXPECT_EQ(printable("a\tb\r\nc"), "a" + mark + "b" + mark + mark + "c");
  EXPECT_EQ(printable("\xC2\x9B"
                      "31m"),
            mark + "31m");  // a control sequence's eight-bit introducer
  EXPECT_EQ(printable("abc\u202Etxt.exe"), "abc" + mark + "txt.exe");
  EXPECT_EQ(printable("bad\xFF"
                      "byte\xE9"),
            "bad" + mark + "byte" + mark);
}

}  // namespace
}  // namespace monitor::vesk
