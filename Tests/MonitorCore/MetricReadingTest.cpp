// SPDX-License-Identifier: MIT
#include "MonitorCore/MetricReading.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "MonitorCore/Json/MetricCoding.h"

namespace monitor {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

MetricReading reading(std::optional<double> value, MetricState state,
                      std::optional<std::string> detail = std::nullopt) {
  return {value, MetricUnit::Percent, "kernel", state, Date{12.5}, std::move(detail)};
}

MetricReading decoded(std::string_view text) {
  const json::Document document(text);
  return json::decodeMetricReading(document.root());
}

MetricReadings decodedMap(std::string_view text) {
  const json::Document document(text);
  return json::decodeMetricReadings(document.root());
}

std::string errorOf(std::string_view text) {
  try {
    decoded(text);
  } catch (const json::DecodeError& error) {
    return error.what();
  }
  return "no error";
}

TEST(MetricReadingTest, FiniteValueIsKeptWithItsState) {
  for (const MetricState state : {MetricState::Available, MetricState::WarmingUp, MetricState::Stale,
                                  MetricState::Unsupported, MetricState::PermissionRequired}) {
    EXPECT_EQ(reading(3.5, state).value, 3.5);
    EXPECT_EQ(reading(3.5, state).state, state);
  }
}

TEST(MetricReadingTest, NonFiniteValueIsDroppedAndAvailableBecomesWarmingUp) {
  for (const double value : {kNaN, kInfinity, -kInfinity}) {
    EXPECT_EQ(reading(value, MetricState::Available).value, std::nullopt);
    EXPECT_EQ(reading(value, MetricState::Available).state, MetricState::WarmingUp);
    EXPECT_EQ(reading(value, MetricState::WarmingUp).state, MetricState::WarmingUp);
    EXPECT_EQ(reading(value, MetricState::Stale).state, MetricState::Stale);
  }
}

TEST(MetricReadingTest, AbsentValueKeepsStatesOtherThanAvailable) {
  EXPECT_EQ(reading(std::nullopt, MetricState::Available).state, MetricState::WarmingUp);
  EXPECT_EQ(reading(std::nullopt, MetricState::WarmingUp).state, MetricState::WarmingUp);
  EXPECT_EQ(reading(std::nullopt, MetricState::Stale).state, MetricState::Stale);
  EXPECT_EQ(reading(std::nullopt, MetricState::Unsupported).state, MetricState::Unsupported);
  EXPECT_EQ(reading(std::nullopt, MetricState::PermissionRequired).state, MetricState::PermissionRequired);
}

TEST(MetricReadingTest, LargestFiniteValueIsKept) {
  const double largest = std::numeric_limits<double>::max();
  EXPECT_EQ(reading(largest, MetricState::Available).value, largest);
  EXPECT_EQ(reading(-largest, MetricState::Available).state, MetricState::Available);
}

TEST(MetricReadingTest, AbsentAndEmptyDetailAreNotEqual) {
  EXPECT_NE(reading(1, MetricState::Available), reading(1, MetricState::Available, ""));
  EXPECT_EQ(reading(1, MetricState::Available, ""), reading(1, MetricState::Available, ""));
}

TEST(MetricReadingTest, EqualityComparesEveryField) {
  const MetricReading base = reading(1, MetricState::Available, "x");
  const auto changed = [&base](auto change) {
    MetricReading other = base;
    change(other);
    return !(base == other);
  };
  EXPECT_TRUE(changed([](MetricReading& r) { r.value = 2; }));
  EXPECT_TRUE(changed([](MetricReading& r) { r.value.reset(); }));
  EXPECT_TRUE(changed([](MetricReading& r) { r.unit = MetricUnit::Level; }));
  EXPECT_TRUE(changed([](MetricReading& r) { r.source = "other"; }));
  EXPECT_TRUE(changed([](MetricReading& r) { r.state = MetricState::Stale; }));
  EXPECT_TRUE(changed([](MetricReading& r) { r.timestamp = Date{12}; }));
  EXPECT_TRUE(changed([](MetricReading& r) { r.detail = "y"; }));
  EXPECT_FALSE(changed([](MetricReading&) {}));
}

TEST(MetricReadingJsonTest, KeysAreWrittenInOrder) {
  EXPECT_EQ(
      json::encodeMetricReading(reading(75, MetricState::Available, "why")).text(),
      R"({"value":75.0,"unit":"percent","source":"kernel","state":"available","timestamp":12.5,"detail":"why"})");
}

TEST(MetricReadingJsonTest, AbsentValueAndDetailWriteNoKey) {
  EXPECT_EQ(json::encodeMetricReading(reading(std::nullopt, MetricState::Stale)).text(),
            R"({"unit":"percent","source":"kernel","state":"stale","timestamp":12.5})");
}

TEST(MetricReadingJsonTest, FourRequiredKeysGiveAReadingAtTheReferenceDate) {
  const MetricReading reading =
      decoded(R"({"unit":"rpm","source":"fan","state":"unsupported","timestamp":0})");
  EXPECT_EQ(reading.value, std::nullopt);
  EXPECT_EQ(reading.detail, std::nullopt);
  EXPECT_EQ(reading.timestamp, Date{0});
  EXPECT_EQ(reading.timestamp.secondsSince1970(), 978307200.0);
  EXPECT_EQ(reading.unit, MetricUnit::Rpm);
}

TEST(MetricReadingJsonTest, NullIsTheSameAsAnAbsentOptional) {
  const MetricReading reading =
      decoded(R"({"value":null,"unit":"rpm","source":"fan","state":"stale","timestamp":0,"detail":null})");
  EXPECT_EQ(reading.value, std::nullopt);
  EXPECT_EQ(reading.detail, std::nullopt);
}

TEST(MetricReadingJsonTest, AvailableWithoutValueIsKeptAsItWasSent) {
  EXPECT_EQ(decoded(R"({"unit":"rpm","source":"fan","state":"available","timestamp":0})").state,
            MetricState::Available);
}

TEST(MetricReadingJsonTest, EveryRequiredKeyIsRequired) {
  EXPECT_NE(errorOf(R"({"source":"s","state":"stale","timestamp":0})").find("\"unit\""), std::string::npos);
  EXPECT_NE(errorOf(R"({"unit":"rpm","state":"stale","timestamp":0})").find("\"source\""), std::string::npos);
  EXPECT_NE(errorOf(R"({"unit":"rpm","source":"s","timestamp":0})").find("\"state\""), std::string::npos);
  EXPECT_NE(errorOf(R"({"unit":"rpm","source":"s","state":"stale"})").find("\"timestamp\""),
            std::string::npos);
  EXPECT_THROW(decoded(R"({"unit":null,"source":"s","state":"stale","timestamp":0})"), json::DecodeError);
}

TEST(MetricReadingJsonTest, StateTextInOtherLetterCaseIsRefused) {
  EXPECT_EQ(errorOf(R"({"unit":"rpm","source":"s","state":"Available","timestamp":0})"),
            "at state: \"Available\" is not a metric state");
}

TEST(MetricReadingJsonTest, UnknownUnitIsRefused) {
  EXPECT_EQ(errorOf(R"({"unit":"volts","source":"s","state":"stale","timestamp":0})"),
            "at unit: \"volts\" is not a metric unit");
}

TEST(MetricReadingJsonTest, WrongTypesAreRefused) {
  EXPECT_THROW(decoded(R"({"value":"1","unit":"rpm","source":"s","state":"stale","timestamp":0})"),
               json::DecodeError);
  EXPECT_THROW(decoded(R"({"value":true,"unit":"rpm","source":"s","state":"stale","timestamp":0})"),
               json::DecodeError);
  EXPECT_THROW(decoded(R"({"unit":"rpm","source":1,"state":"stale","timestamp":0})"), json::DecodeError);
  EXPECT_THROW(decoded(R"({"unit":"rpm","source":"s","state":"stale","timestamp":"0"})"), json::DecodeError);
  EXPECT_THROW(decoded(R"([])"), json::DecodeError);
}

TEST(MetricReadingJsonTest, ReadingsAreAFlatArrayOfMetricAndReading) {
  MetricReadings readings;
  readings.emplace(MetricID::Gpu, reading(1, MetricState::Available));
  readings.emplace(MetricID::Cpu, reading(std::nullopt, MetricState::Stale));
  EXPECT_EQ(
      json::encodeMetricReadings(readings).text(),
      R"(["cpu",{"unit":"percent","source":"kernel","state":"stale","timestamp":12.5},)"
      R"("gpu",{"value":1.0,"unit":"percent","source":"kernel","state":"available","timestamp":12.5}])");
}

TEST(MetricReadingJsonTest, ReadingsSurviveTheRoundTrip) {
  MetricReadings readings;
  for (const MetricID metric : kAllMetrics)
    readings.emplace(metric, reading(0.1, MetricState::Available, "d"));
  EXPECT_EQ(decodedMap(json::encodeMetricReadings(readings).text()), readings);
  EXPECT_TRUE(decodedMap("[]").empty());
}

TEST(MetricReadingJsonTest, OddNumberOfElementsIsRefused) {
  EXPECT_THROW(decodedMap(R"(["cpu"])"), json::DecodeError);
}

TEST(MetricReadingJsonTest, LastOfTwoReadingsOfOneMetricWins) {
  const auto one = [](const char* source) {
    return R"("cpu",{"unit":"rpm","source":")" + std::string(source) + R"(","state":"stale","timestamp":0})";
  };
  const MetricReadings readings = decodedMap("[" + one("first") + "," + one("second") + "]");
  ASSERT_EQ(readings.size(), 1U);
  EXPECT_EQ(readings.at(MetricID::Cpu).source, "second");
}

TEST(MetricReadingJsonTest, ReadingsAsAnObjectOrWithUnknownMetricsAreRefused) {
  EXPECT_THROW(decodedMap("{}"), json::DecodeError);
  EXPECT_THROW(decodedMap(R"(["CPU",{"unit":"rpm","source":"s","state":"stale","timestamp":0}])"),
               json::DecodeError);
  EXPECT_THROW(decodedMap(R"([{"unit":"rpm","source":"s","state":"stale","timestamp":0},"cpu"])"),
               json::DecodeError);
}

}  // namespace
}  // namespace monitor
