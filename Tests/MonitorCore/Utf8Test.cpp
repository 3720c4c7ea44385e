// SPDX-License-Identifier: MIT
#include "MonitorCore/Utf8.h"

#include <gtest/gtest.h>

namespace monitor {
namespace {

constexpr const char* kReplacement = "\xEF\xBF\xBD";

TEST(Utf8, WellFormedTextStaysAsItIs) {
  for (const std::string text : {"", "/usr/bin/player", "/Applications/Größe – 音.app",
                                 "a \"quoted\"\\\n\x01\x7F text", "\xF0\x9F\x8E\xB5"}) {
    EXPECT_EQ(repairedUtf8(text), text);
  }
  const std::string withNul("a\0ü", 4);
  EXPECT_EQ(repairedUtf8(withNul), withNul);
}

TEST(Utf8, IllFormedSequencesBecomeReplacementCharacters) {
  const std::string r = kReplacement;
  EXPECT_EQ(repairedUtf8("/opt/pl\xFFyer"), "/opt/pl" + r + "yer");
  EXPECT_EQ(repairedUtf8("end\xC3"), "end" + r);
  EXPECT_EQ(repairedUtf8("\xED\xA0\x80"), r + r + r) << "a surrogate is three ill-formed bytes";
  EXPECT_EQ(repairedUtf8("\xC0\xAF"), r + r) << "overlong";
  EXPECT_EQ(repairedUtf8("\xF4\x90\x80\x80"), r + r + r + r) << "beyond the last code point";
}

TEST(Utf8, OneReplacementStandsForAsMuchOfASequenceAsWasWellFormed) {
  const std::string r = kReplacement;
  EXPECT_EQ(repairedUtf8("a\xF1\x80\x80\xE1\x80\xC2"
                         "b\x80"
                         "c\x80\xBF"
                         "d"),
            "a" + r + r + r + "b" + r + "c" + r + r + "d");
}

}  // namespace
}  // namespace monitor
