// SPDX-License-Identifier: MIT
#include "MonitorCore/CounterRate.h"

#include <gtest/gtest.h>

#include <limits>

#include "MonitorCore/InterfaceRates.h"

namespace monitor {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();

TEST(CounterRateTest, FirstReadingHasNoRateAndTheSecondHas) {
  CounterRate rate;
  EXPECT_EQ(rate.sample(5000, 100.0), std::nullopt);
  EXPECT_EQ(rate.sample(6000, 101.0), 1000.0);
  EXPECT_EQ(rate.sample(6000, 103.0), 0.0);
}

TEST(CounterRateTest, CounterThatWentBackwardsStartsOver) {
  CounterRate rate;
  rate.sample(5000, 1.0);
  EXPECT_EQ(rate.sample(100, 2.0), std::nullopt);
  EXPECT_EQ(rate.sample(150, 3.0), 50.0);
}

TEST(CounterRateTest, TimeThatStandsStillOrRunsBackwardsHasNoRate) {
  CounterRate rate;
  rate.sample(0, 10.0);
  EXPECT_EQ(rate.sample(100, 10.0), std::nullopt);
  EXPECT_EQ(rate.sample(200, 9.0), std::nullopt);
  EXPECT_EQ(rate.sample(300, 10.0), 100.0);
}

TEST(CounterRateTest, NinetySecondsAreRatedAndMoreAreNot) {
  CounterRate rate;
  rate.sample(0, 0.0);
  EXPECT_EQ(rate.sample(900, 90.0), 10.0);
  rate.reset();
  rate.sample(0, 0.0);
  EXPECT_EQ(rate.sample(900, 90.000001), std::nullopt);
  EXPECT_EQ(rate.sample(910, 91.000001), 10.0);
}

TEST(CounterRateTest, NonFiniteTimeIsRememberedAndCostsOneMoreRate) {
  for (const double bad : {kNaN, kInfinity, -kInfinity}) {
    CounterRate rate;
    rate.sample(0, 1.0);
    EXPECT_EQ(rate.sample(100, bad), std::nullopt);
    EXPECT_EQ(rate.sample(200, 2.0), std::nullopt);
    EXPECT_EQ(rate.sample(300, 3.0), 100.0);
  }
}

TEST(CounterRateTest, DifferenceIsTakenBeforeTheConversion) {
  CounterRate rate;
  rate.sample(kLargest - 3, 0.0);
  EXPECT_EQ(rate.sample(kLargest, 1.0), 3.0);  // the two totals are equal as doubles
  EXPECT_EQ(rate.sample(0, 2.0), std::nullopt);
  EXPECT_EQ(rate.sample(kLargest, 3.0), 18446744073709551616.0);
}

TEST(CounterRateTest, ResetForgetsThePreviousReading) {
  CounterRate rate;
  rate.sample(0, 0.0);
  rate.reset();
  EXPECT_EQ(rate.sample(100, 1.0), std::nullopt);
}

NetworkCounter physical(const char* name, std::uint64_t received, std::uint64_t sent) {
  return {name, received, sent, true};
}

void expectSum(const InterfaceRates::Sum& sum, std::optional<double> download, std::optional<double> upload) {
  EXPECT_EQ(sum.download, download);
  EXPECT_EQ(sum.upload, upload);
}

TEST(InterfaceRatesTest, RatesOfPhysicalInterfacesAreSummed) {
  InterfaceRates rates;
  expectSum(rates.sample({physical("en0", 0, 0), physical("en1", 0, 0)}, 0.0), std::nullopt, std::nullopt);
  expectSum(rates.sample({physical("en0", 100, 10), physical("en1", 50, 5)}, 1.0), 150.0, 15.0);
}

TEST(InterfaceRatesTest, QuietInterfacesHaveARateOfZero) {
  InterfaceRates rates;
  rates.sample({physical("en0", 7, 7)}, 0.0);
  expectSum(rates.sample({physical("en0", 7, 7)}, 1.0), 0.0, 0.0);
}

TEST(InterfaceRatesTest, NewInterfaceAddsNothingYet) {
  InterfaceRates rates;
  rates.sample({physical("en0", 0, 0)}, 0.0);
  expectSum(rates.sample({physical("en0", 100, 0), physical("en1", 999, 999)}, 1.0), 100.0, 0.0);
}

TEST(InterfaceRatesTest, EmptyListForgetsEverything) {
  InterfaceRates rates;
  rates.sample({physical("en0", 0, 0)}, 0.0);
  EXPECT_EQ(rates.rates().size(), 1U);
  expectSum(rates.sample({}, 1.0), std::nullopt, std::nullopt);
  EXPECT_TRUE(rates.rates().empty());
}

TEST(InterfaceRatesTest, OnlyVirtualInterfacesForgetEverything) {
  InterfaceRates rates;
  rates.sample({physical("en0", 0, 0)}, 0.0);
  expectSum(rates.sample({{"en0", 100, 100, false}, {"lo0", 5, 5, false}}, 1.0), std::nullopt, std::nullopt);
  EXPECT_TRUE(rates.rates().empty());
}

TEST(InterfaceRatesTest, InterfaceThatComesBackStartsOver) {
  InterfaceRates rates;
  rates.sample({physical("en0", 0, 0), physical("en1", 0, 0)}, 0.0);
  rates.sample({physical("en0", 1, 1)}, 1.0);
  expectSum(rates.sample({physical("en0", 2, 2), physical("en1", 500, 500)}, 2.0), 1.0, 1.0);
  expectSum(rates.sample({physical("en0", 3, 3), physical("en1", 510, 510)}, 3.0), 11.0, 11.0);
}

TEST(InterfaceRatesTest, DirectionsAreRatedIndependently) {
  InterfaceRates rates;
  rates.sample({physical("en0", 100, 100)}, 0.0);
  expectSum(rates.sample({physical("en0", 200, 50)}, 1.0), 100.0, std::nullopt);
  expectSum(rates.sample({physical("en0", 300, 60)}, 2.0), 100.0, 10.0);
}

TEST(InterfaceRatesTest, SecondRowOfANameYieldsNoRateAndReplacesTheReading) {
  InterfaceRates rates;
  rates.sample({physical("en0", 0, 0)}, 0.0);
  expectSum(rates.sample({physical("en0", 100, 100), physical("en0", 400, 400)}, 1.0), 100.0, 100.0);
  EXPECT_EQ(rates.rates().size(), 1U);
  expectSum(rates.sample({physical("en0", 410, 410)}, 2.0), 10.0, 10.0);
}

TEST(InterfaceRatesTest, NinetySecondLimitHoldsForEveryRow) {
  InterfaceRates rates;
  rates.sample({physical("en0", 0, 0)}, 0.0);
  expectSum(rates.sample({physical("en0", 90, 180)}, 90.0), 1.0, 2.0);
  expectSum(rates.sample({physical("en0", 180, 360)}, 180.5), std::nullopt, std::nullopt);
}

}  // namespace
}  // namespace monitor
