// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "MonitorCore/Date.h"
#include "Tools/vesk/TimeZone.h"

namespace monitor::vesk {

// What a text that names a whole day (or minute) means: its first moment or its last second.
enum class Edge { Begin, End };

class TimeTextError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// The forms that parseTime() reads, for --help.
inline constexpr const char* kTimeFormsHelp =
    "Times are written as\n"
    "  -3h, -90m, -1d12h      so long before now (units s m h d w)\n"
    "  now, today, yesterday  \"today 14:30\" and \"yesterday 14:30\" as well\n"
    "  14:30, 14:30:05        today\n"
    "  2026-11-20             a day; a later end includes all of it\n"
    "  2026-11-20T14:30:05    local time, or with Z or an offset such as +02:00\n"
    "  @1795184700            seconds since 1970";

// Reads one of those forms. Days and clock times without an offset are `zone`'s. Throws TimeTextError with a
// sentence that says what was expected.
[[nodiscard]] Date parseTime(std::string_view text, Date now, const TimeZone& zone, Edge edge = Edge::Begin);

// "2026-11-20 14:30:05", in `zone`, to the second. Outside the years 0 to 9999 "@" and the seconds since
// 1970.
[[nodiscard]] std::string timeText(Date moment, const TimeZone& zone);
// "2026-11-20T14:30:05+01:00", for programs.
[[nodiscard]] std::string isoTimeText(Date moment, const TimeZone& zone);

}  // namespace monitor::vesk
