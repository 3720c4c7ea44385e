// SPDX-License-Identifier: MIT
#include "Tools/vesk/History/HistoryAxes.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace monitor::vesk {
namespace {

constexpr double kMinute = 60.0;
constexpr double kHour = 3'600.0;
constexpr double kDay = 86'400.0;

// The smallest of 1, 2 and 5 times a power of ten that is at least `least`.
double decimalStep(double least) {
  const double power = std::pow(10.0, std::floor(std::log10(least)));
  for (const double factor : {1.0, 2.0, 5.0, 10.0}) {
    if (factor * power >= least * (1 - 1e-9)) return factor * power;
  }
  return 10.0 * power;
}

double binaryStep(double least) {
  return std::max(1.0, std::pow(2.0, std::ceil(std::log2(least) - 1e-9)));
}

double stepFor(double range, MetricUnit unit, std::size_t maxTicks) {
  const double least = range / static_cast<double>(maxTicks - 1);
  if (unit == MetricUnit::Bytes || unit == MetricUnit::BytesPerSecond) return binaryStep(least);
  if (unit == MetricUnit::Level) return std::max(1.0, decimalStep(least));
  return decimalStep(least);
}

struct Extent {
  double low = 0.0;
  double high = 0.0;
};

Extent extentOf(const std::vector<HistoryPoint>& points, bool fromZero) {
  Extent extent{INFINITY, -INFINITY};
  for (const HistoryPoint& point : points) {
    for (const double value : {point.value, point.peak}) {
      if (!std::isfinite(value)) continue;
      extent.low = std::min(extent.low, value);
      extent.high = std::max(extent.high, value);
    }
  }
  if (extent.low > extent.high) return {0.0, 0.0};
  if (fromZero) return {std::min(extent.low, 0.0), std::max(extent.high, 0.0)};
  return extent;
}

std::string dateText(const CivilTime& time) {
  constexpr std::array kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  return fmt::format("{} {}", kMonths.at(static_cast<std::size_t>(time.month - 1)), time.day);
}

// The shortest usual step of a clock or a calendar that needs at most `maxTicks` lines.
double timeStep(double seconds, std::size_t maxTicks) {
  for (const double step : {kMinute, 2 * kMinute, 5 * kMinute, 10 * kMinute, 15 * kMinute, 30 * kMinute,
                            kHour, 2 * kHour, 3 * kHour, 6 * kHour, 12 * kHour, kDay, 2 * kDay, 7 * kDay}) {
    if (seconds / step <= static_cast<double>(maxTicks - 1)) return step;
  }
  return kDay * std::ceil(seconds / kDay / static_cast<double>(maxTicks - 1));
}

}  // namespace

ValueAxis valueAxis(const std::vector<HistoryPoint>& points, MetricUnit unit, std::size_t maxTicks) {
  Extent extent = extentOf(points, unit != MetricUnit::Celsius);
  if (unit == MetricUnit::Level) extent.high = std::max(extent.high, 2.0);  // what "warning" is short of
  if (extent.high - extent.low < 1e-12 * std::max(1.0, std::abs(extent.high))) {
    // A flat line at zero, or anywhere.
    const bool bytes = unit == MetricUnit::Bytes || unit == MetricUnit::BytesPerSecond;
    extent.high = extent.low + (bytes ? 1'024.0 : 1.0);
  }
  const double step = stepFor(extent.high - extent.low, unit, maxTicks);
  ValueAxis axis;
  axis.low = std::floor(extent.low / step + 1e-9) * step;
  const auto steps = static_cast<std::size_t>(std::ceil((extent.high - axis.low) / step - 1e-9));
  for (std::size_t index = 0; index <= steps; ++index) {
    axis.ticks.push_back(axis.low + static_cast<double>(index) * step);
  }
  axis.high = axis.ticks.back();
  return axis;
}

std::vector<TimeTick> timeTicks(Date from, Date through, const TimeZone& zone, std::size_t maxTicks) {
  const double length = through.secondsSince(from);
  if (!(length > 0)) return {};
  const double step = timeStep(length, maxTicks);
  const CivilTime start = zone.civil(from);
  std::vector<TimeTick> ticks;
  // Steps of a clock are counted from the midnight before, so that they stay round over a switch of the
  // clocks.
  const int stepDays = std::max(1, static_cast<int>(step / kDay));
  for (int day = 0;; day += stepDays) {
    const Date midnight = zone.moment({start.year, start.month, start.day + day, 0, 0, 0.0});
    if (midnight > through) break;
    for (double inDay = 0.0; inDay < kDay; inDay += step) {
      const int minutes = static_cast<int>(inDay / kMinute);
      const Date moment =
          zone.moment({start.year, start.month, start.day + day, minutes / 60, minutes % 60, 0.0});
      if (moment < from || moment > through) continue;
      if (!ticks.empty() && moment <= ticks.back().moment) continue;
      const CivilTime civil = zone.civil(moment);
      if (step >= kDay) {
        ticks.push_back({moment, dateText(civil), ""});
        continue;
      }
      const bool newDay = ticks.empty() || (civil.hour == 0 && civil.minute == 0);
      ticks.push_back(
          {moment, fmt::format("{:02}:{:02}", civil.hour, civil.minute), newDay ? dateText(civil) : ""});
    }
  }
  return ticks;
}

std::vector<HistoryRun> contiguousRuns(const std::vector<HistoryPoint>& points) {
  std::vector<HistoryRun> runs;
  for (std::size_t index = 0; index < points.size(); ++index) {
    const bool continues = index > 0 && points[index].resolution == points[index - 1].resolution &&
                           points[index].date.secondsSince(points[index - 1].date) ==
                               static_cast<double>(points[index].resolution);
    if (!continues) runs.push_back({index, 0});
    ++runs.back().count;
  }
  return runs;
}

}  // namespace monitor::vesk
