// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "MonitorCore/Date.h"

namespace monitor::vesk {

// A moment as a calendar and a clock on the wall show it.
struct CivilTime {
  int year = 1970;
  int month = 1;  // 1…12
  int day = 1;
  int hour = 0;
  int minute = 0;
  double second = 0.0;

  friend bool operator==(const CivilTime&, const CivilTime&) = default;
};

// The rules of one time zone. The calendar is the Gregorian one for all years.
class TimeZone {
 public:
  // The zone of this process's user.
  [[nodiscard]] static TimeZone local();
  // By its name in the zone database, "Europe/Berlin". An unknown name means UTC.
  [[nodiscard]] static TimeZone named(const std::string& name);

  // Seconds to add to UTC at `moment`.
  [[nodiscard]] double offsetAt(Date moment) const;
  [[nodiscard]] CivilTime civil(Date moment) const;
  // The moment when clocks show `time`. In the hour that a switch to summer time leaves out they never do: it
  // then counts on from before the switch. In the hour that a switch back repeats, it is the second one. Days
  // may overflow (January 32nd is February 1st).
  [[nodiscard]] Date moment(const CivilTime& time) const;

 private:
  class Rules;
  explicit TimeZone(std::shared_ptr<const Rules> rules);
  std::shared_ptr<const Rules> rules_;
};

// Days from 1970-01-01 to this day of the Gregorian calendar. `day` may lie outside the month.
[[nodiscard]] std::int64_t daysSince1970(int year, int month, int day);

}  // namespace monitor::vesk
