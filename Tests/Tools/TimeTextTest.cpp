// SPDX-License-Identifier: MIT
#include "Tools/vesk/TimeText.h"

#include <gtest/gtest.h>

namespace monitor::vesk {
namespace {

const TimeZone& berlin() {
  static const TimeZone zone = TimeZone::named("Europe/Berlin");
  return zone;
}

// 2024-11-16 12:00:00 UTC, 13:00 in Berlin.
constexpr double kNow = 1'731'758'400.0;

double at(std::string_view text, Edge edge = Edge::Begin, const TimeZone& zone = berlin()) {
  return parseTime(text, Date::since1970(kNow), zone, edge).secondsSince1970();
}

double utc(std::string_view text) {
  return at(text, Edge::Begin, TimeZone::named("UTC"));
}

TEST(TimeText, NowIsTheGivenMoment) {
  EXPECT_EQ(at("now"), kNow);
}

TEST(TimeText, MinusCountsBackFromNow) {
  EXPECT_EQ(at("-3h"), kNow - 3 * 3'600);
  EXPECT_EQ(at("-90s"), kNow - 90);
  EXPECT_EQ(at("-15m"), kNow - 900);
  EXPECT_EQ(at("-2d"), kNow - 2 * 86'400);
  EXPECT_EQ(at("-1w"), kNow - 7 * 86'400);
  EXPECT_EQ(at("-1d12h30m"), kNow - 86'400 - 12 * 3'600 - 1'800);
  EXPECT_EQ(at("-1.5h"), kNow - 5'400);
  EXPECT_EQ(at("-0s"), kNow);
  EXPECT_EQ(at("-3h", Edge::End), kNow - 3 * 3'600);
}

TEST(TimeText, TodayAndYesterdayAreDaysOfTheZone) {
  EXPECT_EQ(at("today"), kNow - 13 * 3'600);
  EXPECT_EQ(at("yesterday"), kNow - 37 * 3'600);
  EXPECT_EQ(at("today", Edge::Begin, TimeZone::named("Pacific/Auckland")), kNow - 1 * 3'600);
  EXPECT_EQ(at("today", Edge::Begin, TimeZone::named("America/Los_Angeles")), kNow - 4 * 3'600);
}

TEST(TimeText, DayAsAnEndIsItsLastSecond) {
  EXPECT_EQ(at("today", Edge::End), kNow + 11 * 3'600 - 1);
  EXPECT_EQ(at("yesterday", Edge::End), kNow - 13 * 3'600 - 1);
  EXPECT_EQ(at("2024-11-16", Edge::End), kNow + 11 * 3'600 - 1);
}

TEST(TimeText, MinuteAsAnEndIsItsLastSecond) {
  EXPECT_EQ(at("14:30", Edge::End), kNow + 1.5 * 3'600 + 59);
  EXPECT_EQ(at("2024-11-16T12:00Z", Edge::End), kNow + 59);
  EXPECT_EQ(at("14:30:00", Edge::End), kNow + 1.5 * 3'600);
  EXPECT_EQ(at("24:00", Edge::End), kNow + 11 * 3'600);
}

TEST(TimeText, ClockTimesAreTodaysOrOfTheDayNamed) {
  EXPECT_EQ(at("13:00"), kNow);
  EXPECT_EQ(at("14:30:05"), kNow + 5'405);
  EXPECT_EQ(at("today 13:00"), kNow);
  EXPECT_EQ(at("yesterday 13:00:30"), kNow - 86'400 + 30);
  EXPECT_EQ(at("00:00"), at("today"));
}

TEST(TimeText, IsoDaysAndTimesAreLocalWithoutAnOffset) {
  EXPECT_EQ(at("2024-11-16"), kNow - 13 * 3'600);
  EXPECT_EQ(at("2024-11-16T13:00"), kNow);
  EXPECT_EQ(at("2024-11-16 13:00:00"), kNow);
  EXPECT_EQ(at("2024-11-16t13:00:00.25"), kNow + 0.25);
  EXPECT_EQ(utc("2024-11-16T12:00:00"), kNow);
}

TEST(TimeText, OffsetsOverrideTheZone) {
  for (const char* text :
       {"2024-11-16T12:00:00Z", "2024-11-16T12:00z", "2024-11-16T14:00+02:00", "2024-11-16T14:00+0200",
        "2024-11-16T14:00+02", "2024-11-16T06:30:00-05:30", "2024-11-15 23:00-13:00"}) {
    EXPECT_EQ(at(text), kNow) << text;
  }
}

TEST(TimeText, SecondsSince1970AreReadAsTheyAre) {
  EXPECT_EQ(at("@1731758400"), kNow);
  EXPECT_EQ(at("@0"), 0.0);
  EXPECT_EQ(at("@-86400"), -86'400.0);
  EXPECT_EQ(at("@12.5"), 12.5);
}

TEST(TimeText, YearsFarAwayAndLeapDaysAreRead) {
  EXPECT_EQ(utc("1970-01-01T00:00:00Z"), 0.0);
  EXPECT_EQ(utc("1969-12-31T23:59:59Z"), -1.0);
  EXPECT_EQ(utc("2000-02-29"), 951'782'400.0);
  EXPECT_EQ(utc("0000-01-01"), -62'167'219'200.0);
  EXPECT_EQ(utc("9999-12-31T23:59:59"), 253'402'300'799.0);
  EXPECT_EQ(utc("2024-12-31T24:00"), utc("2025-01-01"));
}

TEST(TimeText, DaysOfTheZonesSwitchesAreAsLongAsTheyAre) {
  EXPECT_EQ(at("2024-03-31", Edge::End) - at("2024-03-31"), 23 * 3'600 - 1);
  EXPECT_EQ(at("2024-10-27", Edge::End) - at("2024-10-27"), 25 * 3'600 - 1);
  // 02:30 does not exist on the one day, and twice on the other.
  EXPECT_EQ(at("2024-03-31T02:30"), at("2024-03-31T03:30"));
  EXPECT_EQ(at("2024-10-27T02:30"), at("2024-10-27T01:30:00Z"));
}

TEST(TimeText, EverythingElseIsRefusedWithWhatWasExpected) {
  for (const char* text : {"",
                           "tomorrow",
                           "Today",
                           "3h",
                           "-",
                           "-h",
                           "-3",
                           "-3y",
                           "-3h2",
                           "--3h",
                           "-3 h",
                           "- 3h",
                           "-1e3s",
                           "-.s",
                           "-infs",
                           "-nan",
                           "24:01",
                           "25:00",
                           "12:60",
                           "12:00:60",
                           "1:00",
                           "12:0",
                           "12:00:",
                           "12:00:.5",
                           "2024",
                           "2024-11",
                           "2024-13-01",
                           "2024-00-10",
                           "2024-02-30",
                           "2023-02-29",
                           "2024-11-31",
                           "24-11-16",
                           "2024-11-1",
                           "2024/11/16",
                           "2024-11-16T",
                           "2024-11-16 ",
                           "2024-11-16T13",
                           "2024-11-16Z",
                           "2024-11-16T13:00+",
                           "2024-11-16T13:00+2",
                           "2024-11-16T13:00+02:",
                           "2024-11-16T13:00+02:60",
                           "2024-11-16T13:00+19",
                           "2024-11-16T13:00ZZ",
                           "2024-11-16T13:00 Z",
                           "@",
                           "@x",
                           "@1e9",
                           "@--1",
                           "@1 ",
                           "now ",
                           "todayx",
                           "yesterday-1h",
                           " now",
                           "2024-11-16T1\xc3\xa4:00"}) {
    try {
      const double moment = at(text);
      ADD_FAILURE() << "\"" << text << "\" was read as " << moment;
    } catch (const TimeTextError& error) {
      EXPECT_NE(std::string(error.what()).find("expected"), std::string::npos);
      EXPECT_NE(std::string(error.what()).find('"' + std::string(text) + '"'), std::string::npos);
    }
  }
}

TEST(TimeText, MomentsAreWrittenInTheZone) {
  EXPECT_EQ(timeText(Date::since1970(kNow), berlin()), "2024-11-16 13:00:00");
  EXPECT_EQ(timeText(Date::since1970(-0.5), TimeZone::named("UTC")), "1969-12-31 23:59:59");
  EXPECT_EQ(isoTimeText(Date::since1970(kNow), berlin()), "2024-11-16T13:00:00+01:00");
  EXPECT_EQ(isoTimeText(Date::since1970(kNow), TimeZone::named("UTC")), "2024-11-16T12:00:00Z");
  EXPECT_EQ(isoTimeText(Date::since1970(kNow), TimeZone::named("America/St_Johns")),
            "2024-11-16T08:30:00-03:30");
}

TEST(TimeText, MomentsOutsideFourDigitYearsAreWrittenInSeconds) {
  EXPECT_EQ(timeText(Date::since1970(1e15), berlin()), "@1000000000000000");
  EXPECT_EQ(isoTimeText(Date::since1970(-1e15), berlin()), "@-1000000000000000");
}

TEST(TimeText, WrittenMomentsReadBack) {
  for (double moment = -2e9; moment < 4e9; moment += 12'345'678.0) {
    EXPECT_EQ(at(isoTimeText(Date::since1970(moment), berlin())), moment);
  }
}

}  // namespace
}  // namespace monitor::vesk
