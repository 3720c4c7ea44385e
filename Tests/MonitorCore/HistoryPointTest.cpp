// SPDX-License-Identifier: MIT
#include "MonitorCore/HistoryPoint.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "MonitorCore/MonitorStorageError.h"

namespace monitor {
namespace {

std::string idAt(double secondsSince1970, std::int64_t resolution) {
  return HistoryPoint{Date::since1970(secondsSince1970), 0, 0, 0, resolution}.id();
}

TEST(HistoryPointTest, IdIsTheBucketStartWithAFractionalPartAndTheResolution) {
  EXPECT_EQ(idAt(1'731'700'800.0, 60), "1731700800.0:60");
  EXPECT_EQ(idAt(1'731'700'800.0, 900), "1731700800.0:900");
}

TEST(HistoryPointTest, RoundTimesAreNotWrittenWithAnExponent) {
  EXPECT_EQ(idAt(1'700'000'000.0, 60), "1700000000.0:60");
  EXPECT_EQ(idAt(0.0, 60), "0.0:60");
}

TEST(HistoryPointTest, TimesBefore1970KeepTheirMinusSign) {
  EXPECT_EQ(idAt(-900.0, 900), "-900.0:900");
}

TEST(HistoryPointTest, FractionsAreTheShortestThatReadBack) {
  EXPECT_EQ(idAt(12.5, 60), "12.5:60");
}

TEST(HistoryPointTest, EveryTextReadsBackAsTheSameNumber) {
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> seconds(-1e12, 1e12);
  for (int round = 0; round < 1'000; ++round) {
    const HistoryPoint point{Date{seconds(random)}, 0, 0, 0, 60};
    const std::string id = point.id();
    const std::string text = id.substr(0, id.find(':'));
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    ASSERT_EQ(end, text.c_str() + text.size()) << id;
    EXPECT_EQ(value, point.date.secondsSince1970()) << id;
  }
}

TEST(MonitorStorageErrorTest, SentenceIsPrefixedAndTheMessageIsNot) {
  const auto error = MonitorStorageError::database("disk I/O error");
  EXPECT_STREQ(error.what(), "Monitor history: disk I/O error");
  EXPECT_EQ(error.message(), "disk I/O error");
}

}  // namespace
}  // namespace monitor
