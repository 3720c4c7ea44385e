// SPDX-License-Identifier: MIT
#include "Tools/vesk/History/HistoryAxes.h"

#include <gmock/gmock.h>

#include <limits>

#include "Tools/vesk/History/MetricText.h"

namespace monitor::vesk {
namespace {

using testing::DoubleNear;
using testing::ElementsAre;
using testing::Pointwise;

HistoryPoint point(double time, double value, double peak, std::int64_t resolution = 60) {
  return {Date::since1970(time), value, peak, 60, resolution};
}

ValueAxis axisFor(double low, double high, MetricUnit unit, std::size_t ticks = 7) {
  return valueAxis({point(0, low, low), point(60, high, high)}, unit, ticks);
}

std::vector<std::string> labels(double from, double through, const char* zone, std::size_t most = 11) {
  std::vector<std::string> all;
  for (const auto& tick :
       timeTicks(Date::since1970(from), Date::since1970(through), TimeZone::named(zone), most)) {
    all.push_back(tick.second.empty() ? tick.label : tick.label + " " + tick.second);
  }
  return all;
}

TEST(HistoryValueAxis, BeginsAtZeroAndEndsAtARoundValueAboveThePeak) {
  const auto axis = valueAxis({point(0, 30, 84)}, MetricUnit::Percent, 7);
  EXPECT_EQ(axis.low, 0);
  EXPECT_EQ(axis.high, 100);
  EXPECT_THAT(axis.ticks, ElementsAre(0, 20, 40, 60, 80, 100));
}

TEST(HistoryValueAxis, BytesStepInPowersOfTwo) {
  EXPECT_THAT(axisFor(0, 1.4 * 1'048'576, MetricUnit::BytesPerSecond).ticks,
              ElementsAre(0, 262'144, 524'288, 786'432, 1'048'576, 1'310'720, 1'572'864));
}

TEST(HistoryValueAxis, TemperaturesDoNotBeginAtZero) {
  const auto axis = axisFor(55.8, 67.1, MetricUnit::Celsius);
  EXPECT_EQ(axis.low, 54);
  EXPECT_EQ(axis.high, 68);
}

TEST(HistoryValueAxis, NegativeValuesAreCovered) {
  const auto axis = axisFor(-12, 3, MetricUnit::Watts);
  EXPECT_LE(axis.low, -12);
  EXPECT_GE(axis.high, 3);
}

TEST(HistoryValueAxis, LevelsReachToCritical) {
  EXPECT_THAT(axisFor(0, 0, MetricUnit::Level).ticks, ElementsAre(0, 1, 2));
}

TEST(HistoryValueAxis, EmptyFlatAndUnusableHistoriesHaveAnAxis) {
  for (const MetricUnit unit :
       {MetricUnit::Percent, MetricUnit::Bytes, MetricUnit::Celsius, MetricUnit::Level}) {
    for (const auto& points :
         {std::vector<HistoryPoint>{},
          {point(0, 0, 0)},
          {point(0, 51, 51)},
          {point(0, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity())}}) {
      const auto axis = valueAxis(points, unit, 7);
      EXPECT_LT(axis.low, axis.high);
      EXPECT_GE(axis.ticks.size(), 2U);
      EXPECT_LE(axis.ticks.size(), 9U);
    }
  }
}

TEST(HistoryValueAxis, EveryMagnitudeHasAHandfulOfLinesThatCoverIt) {
  for (const MetricUnit unit : {MetricUnit::Percent, MetricUnit::Bytes}) {
    for (double high = 1.3; high < 1e18; high *= 3.7) {
      const auto axis = axisFor(0, high, unit);
      EXPECT_GE(axis.high, high * (1 - 1e-6));
      EXPECT_LE(axis.ticks.size(), 8U);
      EXPECT_GE(axis.ticks.size(), 2U);
    }
  }
}

// 2024-11-16 12:00:00 UTC.
constexpr double kNoon = 1'731'758'400.0;

TEST(HistoryTimeAxis, TicksAreRoundTimesOfTheZone) {
  EXPECT_THAT(labels(kNoon, kNoon + 3'600, "Europe/Berlin"),
              ElementsAre("13:00 Nov 16", "13:10", "13:20", "13:30", "13:40", "13:50", "14:00"));
  EXPECT_THAT(labels(kNoon + 1, kNoon + 5 * 3'600, "Asia/Kolkata"),
              ElementsAre("18:00 Nov 16", "18:30", "19:00", "19:30", "20:00", "20:30", "21:00", "21:30",
                          "22:00", "22:30"));
}

TEST(HistoryTimeAxis, MidnightsCarryTheirDate) {
  EXPECT_THAT(labels(kNoon, kNoon + 86'400, "UTC"),
              ElementsAre("12:00 Nov 16", "15:00", "18:00", "21:00", "00:00 Nov 17", "03:00", "06:00",
                          "09:00", "12:00"));
}

TEST(HistoryTimeAxis, LongRangesAreLabelledWithDays) {
  EXPECT_THAT(labels(kNoon, kNoon + 30 * 86'400, "UTC"), ElementsAre("Nov 23", "Nov 30", "Dec 7", "Dec 14"));
}

TEST(HistoryTimeAxis, TicksStayRoundOverASwitchOfTheClocks) {
  // 2024-10-27 00:00 to 12:00 in Berlin, thirteen hours.
  EXPECT_THAT(labels(1'729'980'000, 1'729'980'000 + 13 * 3'600, "Europe/Berlin", 8),
              ElementsAre("00:00 Oct 27", "02:00", "04:00", "06:00", "08:00", "10:00", "12:00"));
  // 2024-03-31, eleven hours: 02:00 does not exist and is not drawn twice.
  EXPECT_THAT(labels(1'711'839'600, 1'711'839'600 + 5 * 3'600, "Europe/Berlin", 8),
              ElementsAre("00:00 Mar 31", "01:00", "03:00", "04:00", "05:00", "06:00"));
}

TEST(HistoryTimeAxis, AnyRangeHasNoMoreTicksThanAsked) {
  for (double seconds = 1; seconds < 1e9; seconds *= 2.3) {
    EXPECT_LE(labels(kNoon, kNoon + seconds, "Europe/Berlin").size(), 12U) << seconds;
  }
  EXPECT_TRUE(labels(kNoon, kNoon, "UTC").empty());
}

TEST(HistoryRuns, GapsAndChangesOfResolutionPartThem) {
  const std::vector<HistoryPoint> points{point(0, 1, 1, 900), point(900, 1, 1, 900), point(1'800, 1, 1),
                                         point(1'860, 1, 1),  point(1'980, 1, 1),    point(2'040, 1, 1)};
  std::vector<std::pair<std::size_t, std::size_t>> runs;
  for (const auto& run : contiguousRuns(points)) runs.emplace_back(run.first, run.count);
  EXPECT_THAT(runs, ElementsAre(std::pair(0U, 2U), std::pair(2U, 2U), std::pair(4U, 2U)));
  EXPECT_TRUE(contiguousRuns({}).empty());
}

TEST(MetricText, ValuesHaveThreeDigitsAndTheirUnit) {
  EXPECT_EQ(valueText(12.34, MetricUnit::Percent), "12.3 %");
  EXPECT_EQ(valueText(0, MetricUnit::Percent), "0 %");
  EXPECT_EQ(valueText(100, MetricUnit::Percent), "100 %");
  EXPECT_EQ(valueText(99.96, MetricUnit::Percent), "100 %");
  EXPECT_EQ(valueText(0.051, MetricUnit::Watts), "0.05 W");
  EXPECT_EQ(valueText(512, MetricUnit::Bytes), "512 B");
  EXPECT_EQ(valueText(1'023, MetricUnit::Bytes), "1023 B");
  EXPECT_EQ(valueText(1'024, MetricUnit::Bytes), "1.00 KiB");
  EXPECT_EQ(valueText(1'048'575, MetricUnit::Bytes), "1.00 MiB");
  EXPECT_EQ(valueText(1.5 * 1'073'741'824, MetricUnit::BytesPerSecond), "1.50 GiB/s");
  EXPECT_EQ(valueText(-2'048, MetricUnit::Bytes), "-2.00 KiB");
  EXPECT_EQ(valueText(1, MetricUnit::Level), "warning");
  EXPECT_EQ(valueText(0.5, MetricUnit::Level), "0.50");
  EXPECT_EQ(valueText(48.25, MetricUnit::Celsius), "48.2 °C");
  EXPECT_EQ(valueText(2'500.4, MetricUnit::Rpm), "2500 rpm");
  EXPECT_EQ(valueText(std::numeric_limits<double>::infinity(), MetricUnit::Bytes), "inf");
}

TEST(MetricText, AxisLabelsHaveTheDigitsTheyNeed) {
  EXPECT_EQ(tickText(80, MetricUnit::Percent), "80 %");
  EXPECT_EQ(tickText(0.1 * 3, MetricUnit::Percent), "0.3 %");
  EXPECT_EQ(tickText(1.25 * 1'048'576, MetricUnit::BytesPerSecond), "1.25 MiB/s");
  EXPECT_EQ(tickText(0, MetricUnit::Bytes), "0 B");
}

TEST(MetricText, EveryMetricHasATitle) {
  for (const MetricID metric : kAllMetrics) EXPECT_FALSE(metricTitle(metric).empty());
  EXPECT_EQ(unitOf(MetricID::EnergyImpact), MetricUnit::Score);
  EXPECT_EQ(unitOf(MetricID::Cpu), MetricUnit::Percent);
  EXPECT_EQ(unitOf(MetricID::FanRPM), MetricUnit::Rpm);
}

}  // namespace
}  // namespace monitor::vesk
