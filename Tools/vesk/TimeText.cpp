// SPDX-License-Identifier: MIT
#include "Tools/vesk/TimeText.h"

#include <fmt/format.h>

#include <cmath>
#include <optional>
#include <utility>

#include "Tools/vesk/DecimalNumber.h"

namespace monitor::vesk {
namespace {

constexpr double kDaySeconds = 86'400.0;

[[noreturn]] void refuse(std::string_view text) {
  throw TimeTextError(fmt::format(
      "\"{}\" is no time; expected something like -3h, yesterday, 14:30, 2026-11-20 or 2026-11-20T14:30:05Z.",
      text));
}

bool isDigit(char character) {
  return character >= '0' && character <= '9';
}

// Reads a text from its front. The take functions leave it alone where they find nothing.
class Cursor {
 public:
  explicit Cursor(std::string_view text) : rest_(text) {}

  [[nodiscard]] bool atEnd() const { return rest_.empty(); }
  [[nodiscard]] char peek() const { return rest_.empty() ? '\0' : rest_.front(); }

  bool take(std::string_view word) {
    if (!rest_.starts_with(word)) return false;
    rest_.remove_prefix(word.size());
    return true;
  }
  void skip() { rest_.remove_prefix(1); }
  // A number of exactly `digits` digits within [low, high].
  std::optional<int> takeNumber(std::size_t digits, int low, int high) {
    if (rest_.size() < digits) return std::nullopt;
    int number = 0;
    for (std::size_t index = 0; index < digits; ++index) {
      if (!isDigit(rest_[index])) return std::nullopt;
      number = number * 10 + (rest_[index] - '0');
    }
    if (number < low || number > high) return std::nullopt;
    rest_.remove_prefix(digits);
    return number;
  }
  // Digits with an optional fraction; no sign, no exponent.
  std::optional<double> takeDecimal() {
    const std::size_t end = std::min(rest_.find_first_not_of("0123456789."), rest_.size());
    std::string_view text = rest_.substr(0, end);
    const auto number = vesk::takeDecimal(text);
    if (!number || !text.empty()) return std::nullopt;
    rest_.remove_prefix(end);
    return number;
  }

 private:
  std::string_view rest_;
};

std::optional<double> unitSeconds(char unit) {
  switch (unit) {
    case 's':
      return 1.0;
    case 'm':
      return 60.0;
    case 'h':
      return 3'600.0;
    case 'd':
      return kDaySeconds;
    case 'w':
      return 7 * kDaySeconds;
    default:
      return std::nullopt;
  }
}

// "3h", "1d12h": at least one number, each with its unit.
std::optional<double> durationOf(Cursor cursor) {
  double total = 0.0;
  do {
    const auto number = cursor.takeDecimal();
    const auto unit = unitSeconds(cursor.peek());
    if (!number || !unit) return std::nullopt;
    total += *number * *unit;
    cursor.skip();
  } while (!cursor.atEnd());
  return total;
}

struct Day {
  int year;
  int month;
  int day;
};

// "2026-11-20", a day that the calendar has.
std::optional<Day> takeDay(Cursor& cursor) {
  const auto year = cursor.takeNumber(4, 0, 9'999);
  if (!year || !cursor.take("-")) return std::nullopt;
  const auto month = cursor.takeNumber(2, 1, 12);
  if (!month || !cursor.take("-")) return std::nullopt;
  const auto day = cursor.takeNumber(2, 1, 31);
  const std::int64_t monthLength =
      daysSince1970(*month == 12 ? *year + 1 : *year, *month % 12 + 1, 1) - daysSince1970(*year, *month, 1);
  if (!day || *day > monthLength) return std::nullopt;
  return Day{*year, *month, *day};
}

struct ClockTime {
  int hour = 0;
  int minute = 0;
  double second = 0.0;
  bool toTheMinute = true;
};

// "14:30", "14:30:05", "14:30:05.25". 24:00 is the end of the day.
std::optional<ClockTime> takeClock(Cursor& cursor) {
  const auto hour = cursor.takeNumber(2, 0, 24);
  if (!hour || !cursor.take(":")) return std::nullopt;
  const auto minute = cursor.takeNumber(2, 0, 59);
  if (!minute) return std::nullopt;
  ClockTime time{*hour, *minute, 0.0, true};
  if (cursor.take(":")) {
    time.toTheMinute = false;
    const auto second = isDigit(cursor.peek()) ? cursor.takeDecimal() : std::nullopt;
    if (!second || *second >= 60.0) return std::nullopt;
    time.second = *second;
  }
  if (time.hour == 24 && (time.minute > 0 || time.second > 0)) return std::nullopt;
  return time;
}

// "Z", "+02:00", "+0200", "+02": seconds to add to UTC.
std::optional<double> takeOffset(Cursor& cursor) {
  if (cursor.take("Z") || cursor.take("z")) return 0.0;
  const double sign = cursor.take("+") ? 1.0 : cursor.take("-") ? -1.0 : 0.0;
  const auto hours = sign == 0.0 ? std::nullopt : cursor.takeNumber(2, 0, 18);
  if (!hours) return std::nullopt;
  const bool colon = cursor.take(":");
  const auto minutes = cursor.atEnd() && !colon ? 0 : cursor.takeNumber(2, 0, 59);
  if (!minutes) return std::nullopt;
  return sign * (*hours * 3'600.0 + *minutes * 60.0);
}

// What follows a day: nothing, or a clock time with or without an offset.
std::optional<Date> momentOf(const Day& day, Cursor cursor, const TimeZone& zone, Edge edge) {
  if (cursor.atEnd()) {
    if (edge == Edge::Begin) return zone.moment({day.year, day.month, day.day, 0, 0, 0.0});
    return zone.moment({day.year, day.month, day.day + 1, 0, 0, 0.0}).addingSeconds(-1.0);
  }
  if (!cursor.take("T") && !cursor.take("t") && !cursor.take(" ")) return std::nullopt;
  const auto clock = takeClock(cursor);
  if (!clock) return std::nullopt;
  const double more = edge == Edge::End && clock->toTheMinute && clock->hour < 24 ? 59.0 : 0.0;
  if (cursor.atEnd()) {
    return zone.moment({day.year, day.month, day.day, clock->hour, clock->minute, clock->second})
        .addingSeconds(more);
  }
  const auto offset = takeOffset(cursor);
  if (!offset || !cursor.atEnd()) return std::nullopt;
  return Date::since1970(static_cast<double>(daysSince1970(day.year, day.month, day.day)) * kDaySeconds +
                         clock->hour * 3'600.0 + clock->minute * 60.0 + clock->second - *offset + more);
}

std::optional<Date> parse(std::string_view text, Date now, const TimeZone& zone, Edge edge) {
  Cursor cursor(text);
  if (text == "now") return now;
  if (cursor.take("-")) {
    const auto duration = durationOf(cursor);
    return duration ? std::optional(now.addingSeconds(-*duration)) : std::nullopt;
  }
  if (cursor.take("@")) {
    const double sign = cursor.take("-") ? -1.0 : 1.0;
    const auto seconds = cursor.takeDecimal();
    return seconds && cursor.atEnd() ? std::optional(Date::since1970(sign * *seconds)) : std::nullopt;
  }
  const CivilTime today = zone.civil(now);
  if (cursor.take("today")) return momentOf({today.year, today.month, today.day}, cursor, zone, edge);
  if (cursor.take("yesterday")) return momentOf({today.year, today.month, today.day - 1}, cursor, zone, edge);
  if (text.find(':') == 2) {
    const std::string timed = ' ' + std::string(text);
    return momentOf({today.year, today.month, today.day}, Cursor(timed), zone, edge);
  }
  const auto day = takeDay(cursor);
  return day ? momentOf(*day, cursor, zone, edge) : std::nullopt;
}

// With a day to spare for the zone.
bool hasFourDigitYear(Date moment) {
  const double seconds = moment.secondsSince1970();
  return seconds >= -62'167'219'200.0 + kDaySeconds && seconds <= 253'402'300'799.0 - kDaySeconds;
}

}  // namespace

Date parseTime(std::string_view text, Date now, const TimeZone& zone, Edge edge) {
  const auto moment = parse(text, now, zone, edge);
  if (!moment) refuse(text);
  return *moment;
}

std::string timeText(Date moment, const TimeZone& zone) {
  if (!hasFourDigitYear(moment)) return fmt::format("@{:.0f}", moment.secondsSince1970());
  const CivilTime time = zone.civil(moment);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", time.year, time.month, time.day, time.hour,
                     time.minute, static_cast<int>(time.second));
}

std::string isoTimeText(Date moment, const TimeZone& zone) {
  if (!hasFourDigitYear(moment)) return timeText(moment, zone);
  std::string text = timeText(moment, zone);
  text[text.find(' ')] = 'T';
  const auto minutes = static_cast<int>(std::lround(zone.offsetAt(moment) / 60.0));
  if (minutes == 0) return text + 'Z';
  return text + fmt::format("{}{:02}:{:02}", minutes < 0 ? '-' : '+', std::abs(minutes) / 60,
                            std::abs(minutes) % 60);
}

}  // namespace monitor::vesk
