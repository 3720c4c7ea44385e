// SPDX-License-Identifier: MIT
#pragma once

#include <compare>

namespace monitor {

// A moment on the wall clock: seconds since 2001-01-01 00:00:00 UTC as a 64-bit float. That is the form dates
// have in JSON; the history database counts from 1970. Durations are plain seconds (double).
struct Date {
  double secondsSince2001 = 0.0;

  // Seconds between the two reference dates, 1970-01-01 and 2001-01-01.
  static constexpr double kReferenceDateSince1970 = 978'307'200.0;

  static constexpr Date since1970(double seconds) { return Date{seconds - kReferenceDateSince1970}; }
  [[nodiscard]] constexpr double secondsSince1970() const { return secondsSince2001 + kReferenceDateSince1970; }
  // Seconds from `earlier` to this date; negative when `earlier` lies later.
  [[nodiscard]] constexpr double secondsSince(Date earlier) const {
    return secondsSince2001 - earlier.secondsSince2001;
  }
  [[nodiscard]] constexpr Date addingSeconds(double seconds) const { return Date{secondsSince2001 + seconds}; }

  friend constexpr auto operator<=>(const Date&, const Date&) = default;
};

}  // namespace monitor
