// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/DesktopEntry.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace monitor::platform {
namespace {

using Suffixes = std::vector<std::string>;

TEST(LocaleSuffixesTest, GoFromTheWholeLocaleToTheLanguage) {
  EXPECT_EQ(localeSuffixes("sr_RS.UTF-8@latin"), (Suffixes{"sr_RS@latin", "sr_RS", "sr@latin", "sr"}));
  EXPECT_EQ(localeSuffixes("de_DE.UTF-8"), (Suffixes{"de_DE", "de"}));
  EXPECT_EQ(localeSuffixes("de"), Suffixes{"de"});
  EXPECT_EQ(localeSuffixes("de@euro"), (Suffixes{"de@euro", "de"}));
}

TEST(LocaleSuffixesTest, PlainLocalesHaveNone) {
  for (const char* locale : {"", "C", "POSIX", "C.UTF-8"})
    EXPECT_TRUE(localeSuffixes(locale).empty()) << locale;
}

TEST(DesktopEntryTest, BestLanguageWinsWhateverTheOrder) {
  constexpr const char* kText =
      "[Desktop "
      "Entry]\nName[de]=Rechner\nName=Calculator\nName[de_AT]=Taschenrechner\nName[fr]=Calculatrice\n";
  const auto austrian = parseDesktopEntry(kText, localeSuffixes("de_AT.UTF-8"));
  ASSERT_TRUE(austrian);
  EXPECT_EQ(austrian->localizedName, "Taschenrechner");
  EXPECT_EQ(austrian->name, "Calculator");
  EXPECT_EQ(parseDesktopEntry(kText, localeSuffixes("de_CH"))->localizedName, "Rechner");
  EXPECT_EQ(parseDesktopEntry(kText, localeSuffixes("it_IT"))->localizedName, "Calculator");
}

TEST(DesktopEntryTest, OnlyItsOwnGroupCounts) {
  const auto entry =
      parseDesktopEntry("# comment\n\n[Desktop Entry]\nName=Browser\n[Desktop Action new]\nName=New\n", {});
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->name, "Browser");
  EXPECT_FALSE(parseDesktopEntry("[Desktop Action new]\nName=New\n", {}));
  EXPECT_FALSE(parseDesktopEntry("Name=New\n", {}));
  EXPECT_FALSE(parseDesktopEntry("", {}));
}

TEST(DesktopEntryTest, BlanksCommentsAndEscapesAreAsTheFormatSays) {
  const auto entry = parseDesktopEntry("[Desktop Entry]\r\n#Name=No\r\n Name = A\\sB\\tC\\\\D \r\n", {});
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->name, "A B\tC\\D");
}

TEST(DesktopEntryTest, UnusableNamesAreLeftOut) {
  EXPECT_FALSE(parseDesktopEntry("[Desktop Entry]\nName=\n", {})->name);
  EXPECT_FALSE(parseDesktopEntry("[Desktop Entry]\nName=\xff\n", {})->name);
  EXPECT_TRUE(parseDesktopEntry("[Desktop Entry]\nName=" + std::string(1'024, 'n'), {})->name);
  EXPECT_FALSE(parseDesktopEntry("[Desktop Entry]\nName=" + std::string(1'025, 'n'), {})->name);
  const auto entry = parseDesktopEntry("[Desktop Entry]\nName=Good\nName[de]=\xff\n", {"de"});
  EXPECT_EQ(entry->localizedName, "Good");
}

TEST(DesktopEntryTest, HiddenIsNoticed) {
  EXPECT_TRUE(parseDesktopEntry("[Desktop Entry]\nHidden=true\n", {})->hidden);
  EXPECT_FALSE(parseDesktopEntry("[Desktop Entry]\nHidden=false\nNoDisplay=true\n", {})->hidden);
}

TEST(DesktopEntryTest, LinesWithoutAnEqualsSignAreSkipped) {
  EXPECT_EQ(parseDesktopEntry("[Desktop Entry]\nnonsense\nName[=x\nName]=y\nName=Z", {"de"})->localizedName,
            "Z");
}

}  // namespace
}  // namespace monitor::platform
