// SPDX-License-Identifier: MIT
#include "Tools/vesk/TimeZone.h"

#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <chrono>
#include <cmath>
#include <utility>

namespace monitor::vesk {
namespace {

constexpr double kDaySeconds = 86'400.0;

}  // namespace

class TimeZone::Rules {
 public:
  explicit Rules(icu::TimeZone* zone) : zone_(zone) {}

  // `milliseconds` are of UTC, or of the zone's own wall time.
  [[nodiscard]] double offset(double milliseconds, bool ofWallTime) const {
    std::int32_t standard = 0;
    std::int32_t summer = 0;
    UErrorCode status = U_ZERO_ERROR;
    zone_->getOffset(milliseconds, static_cast<UBool>(ofWallTime), standard, summer, status);
    return U_FAILURE(status) ? 0.0 : (standard + summer) / 1'000.0;
  }

 private:
  std::unique_ptr<const icu::TimeZone> zone_;
};

TimeZone::TimeZone(std::shared_ptr<const Rules> rules) : rules_(std::move(rules)) {}

TimeZone TimeZone::local() {
  return TimeZone(std::make_shared<Rules>(icu::TimeZone::createDefault()));
}

TimeZone TimeZone::named(const std::string& name) {
  return TimeZone(std::make_shared<Rules>(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(name))));
}

double TimeZone::offsetAt(Date moment) const {
  return rules_->offset(moment.secondsSince1970() * 1'000.0, false);
}

CivilTime TimeZone::civil(Date moment) const {
  const double wall = moment.secondsSince1970() + offsetAt(moment);
  const double day = std::floor(wall / kDaySeconds);
  const std::chrono::year_month_day date{
      std::chrono::sys_days{std::chrono::days{static_cast<std::int64_t>(day)}}};
  const double inDay = wall - day * kDaySeconds;
  const int minutes = static_cast<int>(inDay / 60.0);
  return {static_cast<int>(date.year()),
          static_cast<int>(static_cast<unsigned>(date.month())),
          static_cast<int>(static_cast<unsigned>(date.day())),
          minutes / 60,
          minutes % 60,
          inDay - minutes * 60.0};
}

Date TimeZone::moment(const CivilTime& time) const {
  const double wall = static_cast<double>(daysSince1970(time.year, time.month, time.day)) * kDaySeconds +
                      time.hour * 3'600.0 + time.minute * 60.0 + time.second;
  return Date::since1970(wall - rules_->offset(wall * 1'000.0, true));
}

std::int64_t daysSince1970(int year, int month, int day) {
  const std::chrono::year_month_day first{
      std::chrono::year{year}, std::chrono::month{static_cast<unsigned>(month)}, std::chrono::day{1}};
  return std::chrono::sys_days{first}.time_since_epoch().count() + day - 1;
}

}  // namespace monitor::vesk
