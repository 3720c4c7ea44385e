// SPDX-License-Identifier: MIT
#include "MonitorCore/PropertyList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <iomanip>
#include <sstream>
#include <string>

#include "MonitorCore/MonitorError.h"
#include "MonitorCore/PropertyListGuard.h"
#include "Tests/MonitorCore/Support/CpuTime.h"
#include "Tests/MonitorCore/Support/RandomProcesses.h"

namespace monitor {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

// What is wrong with `text`, without the byte; empty when nothing is.
std::string fault(std::string_view text) {
  try {
    const PropertyList list(text);
    return "";
  } catch (const MonitorError& error) {
    EXPECT_EQ(error.domain(), MonitorError::kCocoaDomain);
    EXPECT_EQ(error.code(), MonitorError::kPropertyListReadCorrupt);
    const std::string message = error.what();
    EXPECT_THAT(message, StartsWith("The property list is not valid: "));
    const std::size_t begin = message.find(": ") + 2;
    return message.substr(begin, message.rfind(" (byte ") - begin);
  }
}

// The number that `element` stands for as the value of a dictionary.
std::optional<double> numberIn(const std::string& element) {
  const PropertyList list("<dict><key>n</key>" + element + "</dict>");
  const auto value = list.root().find("n");
  return value ? value->number() : std::nullopt;
}

std::string repeated(const std::string& piece, std::size_t bytes) {
  std::string text;
  text.reserve(bytes + piece.size());
  while (text.size() < bytes) text += piece;
  return text;
}

std::string nestedArrays(std::size_t depth) {
  std::string text;
  for (std::size_t level = 0; level < depth; ++level) text += "<array>";
  for (std::size_t level = 0; level < depth; ++level) text += "</array>";
  return text;
}

TEST(PropertyListTest, ReadsADocumentAsToolsWriteIt) {
  const PropertyList list(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
  <key>number</key><integer>42</integer>
  <key>real</key><real>0.25</real>
  <key>yes</key><true/>
  <key>no</key><false/>
  <key>list</key><array><dict/><string>text</string></array>
</dict>
</plist>
)");
  ASSERT_TRUE(list.root().isDictionary());
  EXPECT_EQ(list.root().find("number")->number(), 42.0);
  EXPECT_EQ(list.root().find("real")->number(), 0.25);
  EXPECT_EQ(list.root().find("yes")->number(), std::nullopt);
  EXPECT_EQ(list.root().find("yes")->numberOrBoolean(), 1.0);
  EXPECT_EQ(list.root().find("no")->numberOrBoolean(), 0.0);
  const auto elements = list.root().find("list")->elements();
  ASSERT_EQ(elements->size(), 2U);
  EXPECT_TRUE((*elements)[0].isDictionary());
  EXPECT_FALSE((*elements)[1].isDictionary());
  EXPECT_FALSE(list.root().find("nothing").has_value());
  EXPECT_FALSE(list.root().elements().has_value());
  EXPECT_FALSE(list.root().find("number")->find("x").has_value());
}

TEST(PropertyListTest, IntegersKeepTheirSignAndSize) {
  EXPECT_EQ(numberIn("<integer>-5</integer>"), -5.0);
  EXPECT_EQ(numberIn("<integer>+5</integer>"), 5.0);
  EXPECT_EQ(numberIn("<integer>18446744073709551611</integer>"), 18446744073709551611.0);
  EXPECT_EQ(numberIn("<integer>36893488147419103232</integer>"), 0x1p65);
  EXPECT_EQ(numberIn("<integer>-99999999999999999999999</integer>"), -1e23);
  EXPECT_EQ(numberIn("<integer>010</integer>"), 10.0);
  EXPECT_EQ(numberIn("<integer>0x1F</integer>"), 31.0);
  EXPECT_EQ(numberIn("<integer> 7\n</integer>"), 7.0);
}

TEST(PropertyListTest, RealsAreReadInFull) {
  EXPECT_EQ(numberIn("<real>-1.5e3</real>"), -1500.0);
  EXPECT_EQ(numberIn("<real>.5</real>"), 0.5);
  EXPECT_EQ(numberIn("<real>5.</real>"), 5.0);
  EXPECT_EQ(numberIn("<real>0.1</real>"), 0.1);
  EXPECT_EQ(numberIn("<real>1e999</real>"), HUGE_VAL);
  EXPECT_EQ(numberIn("<real>1<!-- note -->2</real>"), 12.0);
  EXPECT_EQ(numberIn("<real><![CDATA[3]]></real>"), 3.0);
}

TEST(PropertyListTest, MalformedNumbersAreNoNumbers) {
  for (const char* text : {"", "abc", "12abc", "1 2", "--1", "+", ".", "e5", "1e", "0x", "0xg", "nan", "inf",
                           "1,5", "&#49;", "1.5"}) {
    EXPECT_EQ(numberIn("<integer>" + std::string(text) + "</integer>"), std::nullopt) << text;
  }
  for (const char* text : {"", "abc", "1.2.3", "1e+", "0x10", "nan", "-infinity", "1,5"}) {
    EXPECT_EQ(numberIn("<real>" + std::string(text) + "</real>"), std::nullopt) << text;
  }
  EXPECT_EQ(numberIn("<integer/>"), std::nullopt);
  EXPECT_EQ(numberIn("<real/>"), std::nullopt);
  EXPECT_EQ(numberIn("<real>" + std::string(256, '1') + "</real>"),
            std::strtod(std::string(256, '1').c_str(), nullptr));
  EXPECT_EQ(numberIn("<real>" + std::string(257, '1') + "</real>"), std::nullopt);
}

TEST(PropertyListTest, OtherValuesAreNoNumbers) {
  for (const char* element : {"<string>5</string>", "<data>NQ==</data>", "<date>2024-01-01T00:00:00Z</date>",
                              "<true/>", "<array><integer>5</integer></array>", "<dict/>", "<string/>"}) {
    EXPECT_EQ(numberIn(element), std::nullopt) << element;
  }
}

TEST(PropertyListTest, RandomNumbersComeBackExactly) {
  testing::Chance chance(5);
  for (int round = 0; round < testing::rounds(500); ++round) {
    const std::uint64_t bits = chance.bits();
    EXPECT_EQ(numberIn("<integer>" + std::to_string(bits) + "</integer>"), static_cast<double>(bits));
    const auto asSigned = static_cast<std::int64_t>(bits);
    EXPECT_EQ(numberIn("<integer>" + std::to_string(asSigned) + "</integer>"), static_cast<double>(asSigned));
    const double real = std::bit_cast<double>(bits);
    if (!std::isfinite(real)) continue;
    std::ostringstream text;
    text << std::setprecision(17) << real;
    EXPECT_EQ(numberIn("<real>" + text.str() + "</real>"), real);
  }
}

TEST(PropertyListTest, LastOfTwoEqualKeysWins) {
  const PropertyList list(
      "<dict><key>a</key><integer>1</integer><key>b</key><true/><key>a</key><real>2</real></dict>");
  EXPECT_EQ(list.root().find("a")->number(), 2.0);
}

TEST(PropertyListTest, KeysMayHoldEntitiesCommentsAndSections) {
  const PropertyList list(
      "<dict><key>a&amp;b&#65;</key><true/><key>c<!-- note -->d</key><true/><key><![CDATA[<&]]></key><true/>"
      "<key/><true/></dict>");
  EXPECT_TRUE(list.root().find("a&bA").has_value());
  EXPECT_TRUE(list.root().find("cd").has_value());
  EXPECT_TRUE(list.root().find("<&").has_value());
  EXPECT_TRUE(list.root().find("").has_value());
}

TEST(PropertyListTest, UnknownEntityOfAKeyIsAFault) {
  EXPECT_EQ(fault("<dict><key>&bogus;</key><true/></dict>"), "a key holds an unknown entity.");
}

TEST(PropertyListTest, MarkupAroundTheValueIsSkipped) {
  for (const char* text : {"\xEF\xBB\xBF<dict/>", "<!-- <dict> --><plist><dict/></plist><!-- end -->\n",
                           "<?xml?><dict/><?x \"?>", "<!DOCTYPE plist [ <!ENTITY a \"]>\"> ]><dict/>",
                           "<plist version='>'><dict a=\"<\" /></plist>",
                           "<plist\nversion=\"1.0\"\n><dict\t></dict ></plist >"}) {
    EXPECT_EQ(fault(text), "") << text;
  }
}

TEST(PropertyListTest, BrokenStructureIsAFault) {
  EXPECT_EQ(fault(""), "it holds no value");
  EXPECT_EQ(fault(" \n"), "it holds no value");
  EXPECT_EQ(fault("<plist></plist>"), "it holds no value");
  EXPECT_EQ(fault("<plist/>"), "<plist> is misplaced");
  EXPECT_EQ(fault("<array><plist><dict/></plist></array>"), "<plist> is misplaced");
  EXPECT_EQ(fault("<plist><dict/></plist><plist><dict/></plist>"), "<plist> is misplaced");
  EXPECT_EQ(fault("<dict/><dict/>"), "it holds more than one value");
  EXPECT_EQ(fault("<plist><dict/><dict/></plist>"), "it holds more than one value");
  EXPECT_EQ(fault("<plist><dict/></plist>x"), "an element was expected");
  EXPECT_EQ(fault("<dict>x</dict>"), "an element was expected");
  EXPECT_EQ(fault("<dict><true/></dict>"), "a key was expected");
  EXPECT_EQ(fault("<dict><key>a</key></dict>"), "a key has no value");
  EXPECT_EQ(fault("<dict><key>a</key><key>b</key><true/></dict>"), "a key is misplaced");
  EXPECT_EQ(fault("<array><key>a</key></array>"), "a key is misplaced");
  EXPECT_EQ(fault("<key>a</key>"), "a key is misplaced");
  EXPECT_EQ(fault("<dict></array>"), "</array> is misplaced");
  EXPECT_EQ(fault("</dict>"), "</dict> is misplaced");
  EXPECT_EQ(fault("<array><dict></array></dict>"), "</array> is misplaced");
  EXPECT_EQ(fault("<set/>"), "<set> is not an element of property lists");
  EXPECT_EQ(fault("<DICT/>"), "<DICT> is not an element of property lists");
  EXPECT_EQ(fault("<string>a<dict/></string>"), "<string> is not closed");
  EXPECT_EQ(fault("<string>a</data>"), "<string> is not closed");
  EXPECT_EQ(fault("<dict"), "the tag of \"dict\" is malformed");
  EXPECT_EQ(fault("<dict <"), "the tag of \"dict\" is malformed");
  EXPECT_EQ(fault("<dict/ >"), "the tag of \"dict\" is malformed");
  EXPECT_EQ(fault("<dict></dict a=\"1\">"), "the tag of \"dict\" is malformed");
  EXPECT_EQ(fault("<dict a=\"></dict>"), "\"\"\" is missing");
  EXPECT_EQ(fault("<!-- <dict/>"), "\"-->\" is missing");
  EXPECT_EQ(fault("<!DOCTYPE plist"), "the document type does not end");
  EXPECT_EQ(fault("<array><!DOCTYPE plist></array>"), "<> is not an element of property lists");
}

TEST(PropertyListTest, OtherFormatsAreNotRecognised) {
  EXPECT_EQ(fault("bplist00\xd0\x08"), "an element was expected");
  EXPECT_EQ(fault("{ a = 1; }"), "an element was expected");
  EXPECT_EQ(fault("{\"a\":1}"), "an element was expected");
}

TEST(PropertyListTest, NestsSixtyFourLevelsAndNotOneMore) {
  EXPECT_EQ(fault(nestedArrays(64)), "");
  EXPECT_EQ(fault("<plist>" + nestedArrays(64) + "</plist>"), "");
  EXPECT_EQ(fault(nestedArrays(65)), "it nests deeper than 64 levels");
  EXPECT_EQ(fault("<plist>" + nestedArrays(65) + "</plist>"), "it nests deeper than 64 levels");
  std::string dictionaries = "<true/>";
  for (int level = 0; level < 64; ++level) dictionaries = "<dict><key>a</key>" + dictionaries + "</dict>";
  EXPECT_EQ(fault(dictionaries), "");
  EXPECT_EQ(fault("<array>" + dictionaries + "</array>"), "it nests deeper than 64 levels");
}

TEST(PropertyListTest, ClosingTagsInCommentsDoNotHideDepth) {
  for (const char* decoy : {"<!--</array>-->", "<?</array>?>", "<string></string>",
                            "<string><![CDATA[</array>]]></string>", "<true a=\"</array>\"/>"}) {
    std::string text;
    for (int level = 0; level < 65; ++level) text += std::string("<array>") + decoy;
    EXPECT_EQ(fault(text), "it nests deeper than 64 levels") << decoy;
  }
}

TEST(PropertyListTest, DictionaryHasAThousandEntriesAndNotOneMore) {
  const auto entries = [](int count) {
    std::string text = "<dict>";
    for (int entry = 0; entry < count; ++entry) text += "<key>" + std::to_string(entry) + "</key><true/>";
    return text + "</dict>";
  };
  EXPECT_EQ(fault(entries(1000)), "");
  EXPECT_EQ(fault(entries(1001)), "a dictionary has more than 1000 entries");
}

TEST(PropertyListTest, ArrayHasTwentyThousandElementsAndNotOneMore) {
  const auto elements = [](std::size_t count) {
    return "<array>" + repeated("<true/>", 7 * count) + "</array>";
  };
  EXPECT_EQ(fault(elements(20'000)), "");
  EXPECT_EQ(fault(elements(20'001)), "an array has more than 20000 elements");
}

TEST(PropertyListTest, OverlongKeyIsTakenForTheEmptyOne) {
  const PropertyList list("<dict><key>" + std::string(1024, 'a') + "</key><real>1</real><key>" +
                          std::string(1025, 'b') + "</key><real>2</real></dict>");
  EXPECT_EQ(list.root().find(std::string(1024, 'a').c_str())->number(), 1.0);
  EXPECT_FALSE(list.root().find(std::string(1025, 'b').c_str()).has_value());
  EXPECT_EQ(list.root().find("")->number(), 2.0);
}

TEST(PropertyListTest, EveryTruncationIsAFault) {
  const std::string document =
      "<?xml version=\"1.0\"?><!DOCTYPE plist [<!ENTITY a 'b'>]><plist version=\"1.0\"><dict><!-- note "
      "--><key>a</key>"
      "<array><integer>1</integer><real>2.5</real><true/><string><![CDATA[x]]></string></array></dict></"
      "plist>";
  ASSERT_EQ(fault(document), "");
  for (std::size_t length = 0; length < document.size(); ++length) {
    EXPECT_NE(fault(document.substr(0, length)), "") << document.substr(0, length);
  }
}

TEST(PropertyListTest, EveryByteChangedIsReadOrRefused) {
  const std::string document =
      "<plist version=\"1.0\"><dict><key>a&amp;</key><array><integer>-1</integer><real>2.5</real><!-- note "
      "-->"
      "<true/><string><![CDATA[x]]></string></array><key>b</key><dict/></dict></plist>";
  for (std::size_t index = 0; index < document.size(); ++index) {
    for (const char character : {'<', '>', '/', '"', '&', '!', ' ', 'a', '\0', '\xff'}) {
      std::string changed = document;
      changed[index] = character;
      static_cast<void>(fault(changed));  // no crash, no other exception
    }
  }
}

// Every kind of eight mebibytes is dealt with in time, above all those on which the parser underneath would
// take minutes or overflow its stack.
TEST(PropertyListTest, EightMebibytesOfAnyKindAreReadQuickly) {
  constexpr std::size_t kSize = 8U << 20U;
  // Those that are read to their ends and full of markup take a second each in a debug build.
  const std::size_t longSize = testing::rounds(1) > 1 ? kSize : kSize / 8;
  std::string noise(kSize, '\0');
  testing::Chance chance(8);
  std::generate(noise.begin(), noise.end(), [bits = std::uint64_t{0}, left = 0, &chance]() mutable {
    if (left == 0) bits = chance.bits(), left = 8;
    const auto byte = static_cast<char>(bits | 1U);  // never zero
    bits >>= 8U;
    --left;
    return byte;
  });
  std::string repeatedLastKey = "<dict>";
  for (int key = 0; key < 50'000; ++key) repeatedLastKey += "<key>" + std::to_string(key) + "</key><true/>";
  repeatedLastKey += repeated("<key>49999</key><true/>", kSize) + "</dict>";
  std::string manyDictionaries = "<array>";
  while (manyDictionaries.size() < longSize) {
    manyDictionaries += "<dict>" + repeated("<key>a</key><true/>", 19'000) + "</dict>";
  }
  manyDictionaries += "</array>";
  const std::vector<std::pair<std::string, std::string>> documents{
      {"noise", noise},
      {"repeated last key", repeatedLastKey},
      {"dictionaries", manyDictionaries},
      {"angle brackets", std::string(kSize, '<')},
      {"text", "<string>" + std::string(kSize, 'x') + "</string>"},
      {"entities", "<string>" + repeated("&#65;", kSize) + "</string>"},
      {"entities of a key", "<dict><key>" + repeated("&#65;", kSize) + "</key><true/></dict>"},
      {"sections", "<string>" + repeated("<![CDATA[&]]>", longSize) + "</string>"},
      {"comments", repeated("<!---->", longSize) + "<dict/>"},
      {"digits", "<integer>" + std::string(kSize, '9') + "</integer>"},
      {"a long name", "<" + std::string(kSize, 'a') + "/>"},
      {"attributes", "<dict " + repeated("a='b' ", longSize) + "/>"},
      {"values", "<array>" + repeated("<true/>", kSize) + "</array>"},
      {"arrays",
       "<array>" + repeated("<array>" + repeated("<true/>", 139'000) + "</array>", longSize) + "</array>"},
      {"a nested list", repeated("<array>", kSize / 2) + repeated("</array>", kSize / 2)},
  };
  for (const auto& [name, document] : documents) {
    const double seconds = testing::cpuSeconds([&bytes = document] { static_cast<void>(fault(bytes)); });
    EXPECT_LT(seconds, 3.0) << name;
  }
}

TEST(PropertyListTest, NestingThatOverflowsTheParserUnderneathIsRefusedBeforeItSeesIt) {
  const std::string document = nestedArrays(300'000);
  ASSERT_EQ(document.size(), 4'500'000U);
  EXPECT_EQ(fault(document), "it nests deeper than 64 levels");
}

TEST(PropertyListGuardTest, ResultHoldsOnlyWhatIsAskedFor) {
  EXPECT_EQ(
      guardPropertyList("<?xml version=\"1.0\"?><plist version=\"1.0\"><!-- note --><dict><key>a</key>"
                        "<integer> 5 </integer><key>b</key><array><string>text</string><date/><true></true>"
                        "</array><key>c</key><dict/><key>d</key><integer>x</integer></dict></plist>"),
      "<dict><key>a</key><real>5</real><key>b</key><array><string/><string/><true/></array><key>c</key><dict/"
      ">"
      "<key>d</key><string/></dict>");
}

}  // namespace
}  // namespace monitor
