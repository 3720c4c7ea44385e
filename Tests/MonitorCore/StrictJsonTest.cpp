// SPDX-License-Identifier: MIT
#include "MonitorCore/Json/StrictJson.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace monitor::json {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

// The message of the DecodeError that `read` throws when it is given the value of "v" in `text`.
template <class Read>
std::string errorFor(const std::string& text, Read read) {
  try {
    const Document document(text);
    static_cast<void>(read(document.root().at("v")));
  } catch (const DecodeError& error) {
    return error.what();
  }
  return "no error";
}

template <class Integer>
Integer integerFrom(const std::string& number) {
  return Document(number).root().integer<Integer>();
}

template <class Integer>
void expectRefused(const std::string& number) {
  EXPECT_THROW(static_cast<void>(integerFrom<Integer>(number)), DecodeError) << number;
}

double numberFrom(const std::string& number) {
  return Document(number).root().number();
}

std::string nested(int depth) {
  return std::string(static_cast<std::size_t>(depth), '[') +
         std::string(static_cast<std::size_t>(depth), ']');
}

TEST(StrictJsonDocumentTest, AnyValueCanBeTheRoot) {
  EXPECT_TRUE(Document("null").root().isNull());
  EXPECT_TRUE(Document(" \n\t\r 1 ").root().isNumber());
  EXPECT_TRUE(Document("\"\"").root().isString());
  EXPECT_TRUE(Document("[]").root().isArray());
  EXPECT_TRUE(Document("{}").root().isObject());
  EXPECT_EQ(Document("true").root().boolean(), true);
}

TEST(StrictJsonDocumentTest, WhatIsNotOneJsonTextIsRefused) {
  for (const char* text :
       {"",        " ",         "{",           "[1,]",     "{\"a\":1,}",   "{'a':1}",      "{a:1}",
        "[1] [2]", "[1]x",      "01",          "+1",       "1.",           ".5",           "0x10",
        "NaN",     "Infinity",  "-Infinity",   "nul",      "// note\n1",   "/* note */ 1", "\"a",
        "\"\n\"",  "\"\\x41\"", "\"\\ud800\"", "\"\xff\"", "\"\xc0\xaf\"", "1e999"}) {
    EXPECT_THROW(Document{text}, DecodeError) << text;
  }
}

TEST(StrictJsonDocumentTest, ZeroByteDoesNotHideWhatFollows) {
  using namespace std::string_view_literals;
  EXPECT_THROW(Document("[1]\0"sv), DecodeError);
  EXPECT_THROW(Document("[1]\0garbage"sv), DecodeError);
  EXPECT_THROW(Document("\0"sv), DecodeError);
  EXPECT_THROW(Document("\"a\0b\""sv), DecodeError);
  EXPECT_EQ(Document("\"a\\u0000b\"").root().string(), "a\0b"sv);
}

TEST(StrictJsonDocumentTest, NestsSixtyFourLevelsAndNotOneMore) {
  EXPECT_NO_THROW(Document{nested(64)});
  EXPECT_THROW(Document{nested(65)}, DecodeError);
  std::string objects = "1";
  for (int level = 0; level < 64; ++level) objects = "{\"a\":" + objects + "}";
  EXPECT_NO_THROW(Document{objects});
  EXPECT_THROW(Document{"[" + objects + "]"}, DecodeError);
}

TEST(StrictJsonDocumentTest, DeepNestingIsRefusedWithoutDescending) {
  EXPECT_THROW(Document{nested(4'000'000)}, DecodeError);
  EXPECT_THROW(Document{std::string(4'000'000, '[')}, DecodeError);
}

TEST(StrictJsonDocumentTest, MessageOfBadInputIsShortAndPrintable) {
  const std::string input = "[\"" + std::string(100'000, 'a') + "\x1b[31m\xff";
  try {
    const Document document(input);
    FAIL() << "accepted";
  } catch (const DecodeError& error) {
    const std::string message = error.what();
    EXPECT_THAT(message, StartsWith("not valid JSON: "));
    EXPECT_LT(message.size(), 300U);
    for (const char character : message) EXPECT_TRUE(character >= ' ' && character <= '~');
  }
}

TEST(StrictJsonReaderTest, TextIsOnlyText) {
  EXPECT_EQ(Document("\"\\u00e9\\n\"").root().string(), "\xc3\xa9\n");
  for (const char* other : {"1", "true", "null", "[]", "{}"}) {
    EXPECT_THROW(static_cast<void>(Document(other).root().string()), DecodeError) << other;
  }
}

TEST(StrictJsonReaderTest, BooleanIsOnlyABoolean) {
  EXPECT_EQ(Document("false").root().boolean(), false);
  for (const char* other : {"0", "1", "\"true\"", "null", "[]", "{}"}) {
    EXPECT_THROW(static_cast<void>(Document(other).root().boolean()), DecodeError) << other;
  }
}

TEST(StrictJsonReaderTest, NumberTakesEveryFiniteNumberAndNothingElse) {
  EXPECT_EQ(numberFrom("1"), 1.0);
  EXPECT_EQ(numberFrom("-1.5e3"), -1500.0);
  EXPECT_EQ(numberFrom("18446744073709551616"), 0x1p64);
  EXPECT_EQ(numberFrom("1e-999"), 0.0);
  EXPECT_TRUE(std::signbit(numberFrom("-0.0")));
  EXPECT_EQ(numberFrom("1.7976931348623157e308"), std::numeric_limits<double>::max());
  for (const char* other : {"true", "\"1\"", "null", "[]", "{}"}) {
    EXPECT_THROW(static_cast<void>(numberFrom(other)), DecodeError) << other;
  }
}

TEST(StrictJsonReaderTest, SignedIntegersHaveExactlyTheirRange) {
  EXPECT_EQ(integerFrom<std::int32_t>("2147483647"), 2147483647);
  EXPECT_EQ(integerFrom<std::int32_t>("-2147483648"), std::numeric_limits<std::int32_t>::min());
  expectRefused<std::int32_t>("2147483648");
  expectRefused<std::int32_t>("-2147483649");
  EXPECT_EQ(integerFrom<std::int64_t>("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(integerFrom<std::int64_t>("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
  expectRefused<std::int64_t>("9223372036854775808");
  expectRefused<std::int64_t>("-9223372036854775809");
  EXPECT_EQ(integerFrom<std::int8_t>("-128"), -128);
  expectRefused<std::int8_t>("300");
}

TEST(StrictJsonReaderTest, UnsignedIntegersHaveExactlyTheirRange) {
  EXPECT_EQ(integerFrom<std::uint64_t>("18446744073709551615"), std::numeric_limits<std::uint64_t>::max());
  expectRefused<std::uint64_t>("18446744073709551616");
  expectRefused<std::uint64_t>("-1");
  EXPECT_EQ(integerFrom<std::uint64_t>("0"), 0U);
  EXPECT_EQ(integerFrom<std::uint64_t>("-0"), 0U);
  EXPECT_EQ(integerFrom<std::uint16_t>("65535"), 65535);
  expectRefused<std::uint16_t>("65536");
}

TEST(StrictJsonReaderTest, WholeNumbersWrittenWithAPointOrExponentAreIntegers) {
  EXPECT_EQ(integerFrom<std::int32_t>("5.0"), 5);
  EXPECT_EQ(integerFrom<std::int32_t>("-5.0"), -5);
  EXPECT_EQ(integerFrom<std::int32_t>("1e3"), 1000);
  EXPECT_EQ(integerFrom<std::uint32_t>("-0.0"), 0U);
  EXPECT_EQ(integerFrom<std::int64_t>("-1e18"), -1'000'000'000'000'000'000);
  expectRefused<std::int64_t>("-9223372036854775808.0");
  EXPECT_EQ(integerFrom<std::uint64_t>("9223372036854775808.0"), 9223372036854775808U);
  expectRefused<std::int64_t>("9223372036854775808.0");
  expectRefused<std::uint64_t>("18446744073709551616.0");
  expectRefused<std::int64_t>("1e300");
  expectRefused<std::uint64_t>("-1.0");
}

TEST(StrictJsonReaderTest, FractionsBooleansAndTextsAreNoIntegers) {
  for (const char* other : {"5.5", "-0.1", "true", "false", "\"5\"", "null", "[5]", "{}"}) {
    expectRefused<std::int32_t>(other);
    expectRefused<std::uint64_t>(other);
  }
}

TEST(StrictJsonReaderTest, RequiredKeyMustBeThere) {
  const Document document("{\"a\":null}");
  EXPECT_TRUE(document.root().at("a").isNull());
  EXPECT_THROW(static_cast<void>(document.root().at("b")), DecodeError);
  EXPECT_THROW(static_cast<void>(Document("[]").root().at("b")), DecodeError);
}

TEST(StrictJsonReaderTest, OptionalKeyIsAbsentWhenMissingOrNull) {
  const Document document("{\"a\":null,\"b\":0}");
  EXPECT_FALSE(document.root().find("a").has_value());
  EXPECT_FALSE(document.root().find("c").has_value());
  EXPECT_TRUE(document.root().find("b").has_value());
  EXPECT_THROW(static_cast<void>(Document("1").root().find("a")), DecodeError);
}

TEST(StrictJsonReaderTest, LastOfTwoEqualKeysWins) {
  EXPECT_EQ(Document("{\"a\":1,\"b\":0,\"a\":2}").root().at("a").number(), 2);
  EXPECT_FALSE(Document("{\"a\":1,\"a\":null}").root().find("a").has_value());
}

TEST(StrictJsonReaderTest, ArraysAreReadByIndex) {
  const Document document("[10,20]");
  ASSERT_EQ(document.root().size(), 2U);
  EXPECT_EQ(document.root()[1].number(), 20);
  EXPECT_THROW(static_cast<void>(document.root()[2]), DecodeError);
  EXPECT_THROW(static_cast<void>(Document("{}").root().size()), DecodeError);
}

TEST(StrictJsonReaderTest, ErrorsNameThePathAndWhatWasFound) {
  EXPECT_EQ(errorFor("{\"v\":true}", [](const Reader& v) { return v.number(); }),
            "at v: expected a number, found a boolean");
  EXPECT_EQ(errorFor("{\"v\":[{\"pid\":1},{\"pid\":\"x\"}]}",
                     [](const Reader& v) { return v[1].at("pid").integer<std::int8_t>(); }),
            "at v[1].pid: expected a whole number from -128 to 127");
  EXPECT_EQ(errorFor("{\"v\":{}}", [](const Reader& v) { return v.at("start"); }),
            "at v: the required key \"start\" is missing");
  EXPECT_EQ(errorFor("{}", [](const Reader& v) { return v; }), "the required key \"v\" is missing");
  EXPECT_EQ(errorFor("{\"v\":[1]}", [](const Reader& v) { return v[7]; }),
            "at v: expected at least 8 elements");
  EXPECT_EQ(errorFor("{\"v\":{\"a\":[[null]]}}", [](const Reader& v) { return v.at("a")[0][0].string(); }),
            "at v.a[0][0]: expected text, found null");
}

TEST(StrictJsonReaderTest, OwnRulesFailWithThePath) {
  const Document document("{\"list\":[\"x\"]}");
  const Reader item = document.root().at("list")[0];
  EXPECT_EQ(item.path(), "list[0]");
  EXPECT_EQ(document.root().path(), "");
  try {
    item.fail("not wanted");
  } catch (const DecodeError& error) {
    EXPECT_STREQ(error.what(), "at list[0]: not wanted");
  }
}

TEST(StrictJsonReaderTest, QuotedTextIsPrintable) {
  EXPECT_EQ(Document("\"a\\u001b\\u00e9\"").root().quoted(), "\"a???\"");
  EXPECT_EQ(Document('"' + std::string(1000, 'a') + '"').root().quoted(),
            '"' + std::string(200, 'a') + "...\"");
}

TEST(StrictJsonWriterTest, KeysKeepTheOrderTheyWereSetIn) {
  Writer inner = Writer::array();
  inner.append("x");
  inner.append(0.5);
  inner.append(Writer::object());
  Writer object = Writer::object();
  object.set("z", "text");
  object.set("a", true);
  object.set("m", 1.0);
  object.set("list", std::move(inner));
  object.setNull("n");
  EXPECT_EQ(object.text(), R"({"z":"text","a":true,"m":1.0,"list":["x",0.5,{}],"n":null})");
}

TEST(StrictJsonWriterTest, TextIsNotTakenForABoolean) {
  Writer object = Writer::object();
  const char* literal = "yes";
  object.set("a", literal);
  EXPECT_EQ(object.text(), R"({"a":"yes"})");
}

TEST(StrictJsonWriterTest, IntegersAreWrittenInFull) {
  Writer object = Writer::object();
  object.set("low", std::numeric_limits<std::int64_t>::min());
  object.set("high", std::numeric_limits<std::uint64_t>::max());
  object.set("small", std::int8_t{-1});
  EXPECT_EQ(object.text(), R"({"low":-9223372036854775808,"high":18446744073709551615,"small":-1})");
  Writer list = Writer::array();
  list.append(std::numeric_limits<std::int64_t>::min());
  list.append(std::numeric_limits<std::uint64_t>::max());
  list.append(1);
  EXPECT_EQ(list.text(), "[-9223372036854775808,18446744073709551615,1]");
}

TEST(StrictJsonWriterTest, EveryDoubleComesBackExactly) {
  for (const double number : {0.1, -0.0, 1e-320, 5e-324, 1.7976931348623157e308, 786'000'000.123456,
                              0x1.fffffffffffffp52, 1.0 / 3.0}) {
    Writer list = Writer::array();
    list.append(number);
    EXPECT_EQ(Document(list.text()).root()[0].number(), number);
  }
}

TEST(StrictJsonWriterTest, NonFiniteNumbersAreRefused) {
  for (const double number :
       {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity()}) {
    Writer object = Writer::object();
    EXPECT_THROW(object.set("a", number), EncodeError);
    Writer list = Writer::array();
    EXPECT_THROW(list.append(number), EncodeError);
  }
}

TEST(StrictJsonWriterTest, TextThatIsNotUtf8IsRefused) {
  Writer object = Writer::object();
  object.set("a", std::string_view("\xff"));
  EXPECT_THROW(static_cast<void>(object.text()), EncodeError);
}

TEST(StrictJsonWriterTest, ControlCharactersAreEscaped) {
  Writer list = Writer::array();
  list.append(std::string_view("a\0\n\"\\", 5));
  EXPECT_EQ(list.text(), "[\"a\\u0000\\n\\\"\\\\\"]");
  EXPECT_EQ(Document(list.text()).root()[0].string(), std::string("a\0\n\"\\", 5));
}

TEST(StrictJsonWriterTest, IndentGivesOneKeyALine) {
  Writer object = Writer::object();
  object.set("a", 1);
  object.set("b", 2);
  EXPECT_EQ(object.text(2), "{\n  \"a\": 1,\n  \"b\": 2\n}");
}

}  // namespace
}  // namespace monitor::json
