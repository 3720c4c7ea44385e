// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Benchmarks/Harness/Machine.h"
#include "Benchmarks/Harness/Measure.h"
#include "Benchmarks/Harness/Report.h"
#include "Benchmarks/Harness/Statistics.h"
#include "Benchmarks/Harness/Suite.h"

namespace monitor::bench {
namespace {

// Work whose samples are made up.
Work taking(std::string name, double seconds) {
  return {std::move(name), {}, [seconds] { return seconds; }};
}

Comparison comparison(double product, std::vector<Floor> floors, std::optional<double> bound) {
  return {"case", taking("product", product), std::move(floors), bound};
}

TEST(QuartilesTest, MedianOfOddAndEvenCounts) {
  EXPECT_EQ(quartilesOf({3.0, 1.0, 2.0}).median, 2.0);
  EXPECT_EQ(quartilesOf({4.0, 1.0, 2.0, 3.0}).median, 2.5);
  EXPECT_EQ(quartilesOf({7.0}).first, 7.0);
}

TEST(QuartilesTest, QuarterOfTheValuesLiesBelowTheFirstAndAboveTheThird) {
  const Quartiles quartiles = quartilesOf({5.0, 1.0, 4.0, 2.0, 3.0});
  EXPECT_EQ(quartiles.first, 2.0);
  EXPECT_EQ(quartiles.third, 4.0);
}

TEST(QuartilesTest, NoValuesAreRefused) {
  EXPECT_THROW((void)quartilesOf({}), std::invalid_argument);
}

TEST(RepeatedTest, RunsTheFunctionAsOftenAsSaid) {
  int runs = 0;
  const Repeated repeated([&runs] { ++runs; });
  EXPECT_TRUE(repeated);
  repeated(0);
  EXPECT_EQ(runs, 0);
  repeated(7);
  EXPECT_EQ(runs, 7);
  EXPECT_FALSE(Repeated());
}

TEST(MeasureTest, RatioIsAgainstTheWeightedSumOfTheFloors) {
  const Result result = measure(
      "subject", comparison(8.0, {{1.5, taking("copy", 2.0)}, {1.0, taking("silence", 1.0)}}, 1.0), {});
  EXPECT_EQ(result.figure.median, 2.0);
  EXPECT_EQ(result.productSeconds, 8.0);
  EXPECT_EQ(result.floorSeconds, 4.0);
  EXPECT_EQ(result.floor, "1.5 × copy + silence");
  EXPECT_EQ(result.samples, 51U);
  EXPECT_FALSE(result.withinBound());
}

TEST(MeasureTest, RatioAtTheBoundIsWithinAndJustAboveIsNot) {
  EXPECT_TRUE(measure("s", comparison(3.0, {{1.0, taking("f", 2.0)}}, 1.5), {}).withinBound());
  EXPECT_FALSE(measure("s", comparison(3.01, {{1.0, taking("f", 2.0)}}, 1.5), {}).withinBound());
}

TEST(MeasureTest, RatioWithoutABoundIsAlwaysWithin) {
  EXPECT_TRUE(measure("s", comparison(1000.0, {{1.0, taking("f", 1.0)}}, std::nullopt), {}).withinBound());
}

TEST(MeasureTest, ProductAndFloorsAreRunInTurnAndTheOrderChanges) {
  auto order = std::make_shared<std::string>();
  const auto noting = [order](char letter) {
    return Work{{letter}, {}, [order, letter] {
                  order->push_back(letter);
                  return 1.0;
                }};
  };
  const Comparison turns{"case", noting('p'), {{1.0, noting('f')}}, {}};
  (void)measure("s", turns, {.pairs = 16});
  std::string expected = "pf";  // to warm up
  for (int pair = 0; pair < 16; ++pair) expected += pair % 2 == 0 ? "pf" : "fp";
  EXPECT_EQ(*order, expected);
}

TEST(MeasureTest, RepeatedWorkIsRunUntilItFillsASample) {
  auto runs = std::make_shared<std::size_t>(0);
  const Comparison repeated{"case", {"p", [runs] { ++*runs; }, {}}, {{1.0, taking("f", 1.0)}}, {}};
  const Result result = measure("s", repeated, {.pairs = 15, .sampleSeconds = 0.0002});
  EXPECT_GT(*runs, 1000U);
  EXPECT_GT(result.productSeconds, 0.0);
  EXPECT_LT(result.productSeconds, 0.0002) << "seconds are of one run";
}

TEST(MeasureTest, ProcessorTimeIsMeasuredOnDemand) {
  const Comparison cpu{"case", {"p", [] {}, {}}, {{1.0, {"f", [] {}, {}}}}, {}, Clock::Cpu};
  EXPECT_GT(measure("s", cpu, {.pairs = 15, .sampleSeconds = 0.0002}).productSeconds, 0.0);
}

TEST(MeasureTest, FewerThanFifteenPairsAreRefused) {
  const Comparison any = comparison(1.0, {{1.0, taking("f", 1.0)}}, {});
  EXPECT_THROW((void)measure("s", any, {.pairs = 14}), std::invalid_argument);
  EXPECT_EQ(measure("s", any, {.pairs = 15}).samples, 15U);
  Comparison slow = any;
  slow.pairs = 16;
  EXPECT_EQ(measure("s", slow, {.pairs = 51}).samples, 16U);
  slow.pairs = 14;
  EXPECT_THROW((void)measure("s", slow, {.pairs = 51}), std::invalid_argument);
}

TEST(MeasureTest, ComparisonWithNothingAndWorkWithoutAFunctionAreRefused) {
  EXPECT_THROW((void)measure("s", comparison(1.0, {}, {}), {}), std::invalid_argument);
  const Comparison idle{"case", {"p", {}, {}}, {{1.0, taking("f", 1.0)}}, {}};
  EXPECT_THROW((void)measure("s", idle, {}), std::invalid_argument);
  const Comparison both{"case", {"p", [] {}, [] { return 1.0; }}, {{1.0, taking("f", 1.0)}}, {}};
  EXPECT_THROW((void)measure("s", both, {}), std::invalid_argument);
  EXPECT_THROW((void)measure("s", Limit{"l", "ms", {}, 1.0}, {}), std::invalid_argument);
}

TEST(MeasureTest, LimitHoldsTheMedianAgainstItsBound) {
  auto next = std::make_shared<double>(0.0);
  const Limit limit{"request", "ms", [next] { return *next += 1.0; }, 8.0};
  const Result result = measure("s", limit, {.pairs = 15});  // 1 to 15
  EXPECT_EQ(result.figure.median, 8.0);
  EXPECT_TRUE(result.withinBound());
  EXPECT_EQ(result.unit, "ms");
  EXPECT_FALSE(measure("s", limit, {.pairs = 15}).withinBound());
}

TEST(ReportTest, DurationsHaveThreeDigitsAndAUnit) {
  EXPECT_EQ(durationText(48.34e-9), "48.3 ns");
  EXPECT_EQ(durationText(1.2e-3), "1.20 ms");
  EXPECT_EQ(durationText(0.000123), "123 us");
  EXPECT_EQ(durationText(2.0), "2.00 s");
  EXPECT_EQ(durationText(0.0), "0.00 ns");
}

Result made(double median, std::optional<double> bound) {
  Result result;
  result.subject = "gain";
  result.name = "ramp";
  result.floor = "memcpy";
  result.figure = {median - 0.1, median, median + 0.1};
  result.samples = 15;
  result.bound = bound;
  return result;
}

TEST(ReportTest, RowsNameMeasurementFigureAndVerdict) {
  EXPECT_NE(rowText(made(0.9, 1.0)).find("ok\n    of memcpy\n"), std::string::npos);
  EXPECT_NE(rowText(made(1.1, 1.0)).find("MISSED\n"), std::string::npos);
  EXPECT_EQ(rowText(made(1.1, {})).find("MISSED"), std::string::npos);
  EXPECT_EQ(rowText(made(1.1, 1.0)).find("gain/ramp "), 0U);
}

TEST(ReportTest, JsonHasMachineAndEveryResult) {
  const Machine machine{"a processor", 2, "a compiler", "Release"};
  const auto document = nlohmann::json::parse(jsonText(machine, {made(0.9, 1.0), made(1.1, {})}));
  EXPECT_EQ(document["machine"]["processor"], "a processor");
  ASSERT_EQ(document["results"].size(), 2U);
  EXPECT_EQ(document["results"][0]["withinBound"], true);
  EXPECT_EQ(document["results"][0]["floor"], "memcpy");
  EXPECT_FALSE(document["results"][1].contains("bound"));
}

TEST(MachineTest, ProcessorIsTheFirstModelName) {
  EXPECT_EQ(processorNamedBy("processor\t: 0\nmodel name\t: Some CPU @ 2 GHz\nmodel name\t: Other\n"),
            "Some CPU @ 2 GHz");
  EXPECT_EQ(processorNamedBy(""), "unknown processor");
  EXPECT_EQ(processorNamedBy("model name"), "unknown processor");
}

TEST(MachineTest, BuildWithAssertionsOrASanitizerMustNotBeMeasured) {
#if defined(NDEBUG) && defined(__OPTIMIZE__) && !defined(__SANITIZE_ADDRESS__) && \
    !defined(__SANITIZE_THREAD__)
  EXPECT_EQ(measuringRefused(), "");
#else
  EXPECT_NE(measuringRefused(), "");
#endif
}

const Registration kLater("zz-test", [](Suite& suite) { suite.add(comparison(1.0, {}, {})); });
const Registration kEarlier("aa-test", [](Suite& suite) { suite.add(Limit{"l", "ms", {}, 1.0}); });

TEST(RegistrationTest, SubjectsAreOrderedByNameAndFilledOnDemand) {
  const std::vector<Subject> subjects = registeredSubjects();
  ASSERT_EQ(subjects.size(), 2U);
  EXPECT_EQ(subjects[0].name, "aa-test");
  EXPECT_EQ(subjects[1].name, "zz-test");
  Suite suite;
  subjects[1].fill(suite);
  EXPECT_EQ(suite.comparisons().size(), 1U);
  EXPECT_TRUE(suite.limits().empty());
}

}  // namespace
}  // namespace monitor::bench
