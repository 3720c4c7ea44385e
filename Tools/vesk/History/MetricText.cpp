// SPDX-License-Identifier: MIT
#include "Tools/vesk/History/MetricText.h"

#include <fmt/format.h>

#include <array>
#include <cmath>

namespace monitor::vesk {
namespace {

struct MetricFacts {
  MetricUnit unit;
  const char* title;
};

// In the order of the metrics.
constexpr std::array<MetricFacts, kMetricCount> kFacts{{
    {MetricUnit::Percent, "CPU"},
    {MetricUnit::Percent, "CPU in programs"},
    {MetricUnit::Percent, "CPU in the system"},
    {MetricUnit::Percent, "CPU idle"},
    {MetricUnit::Bytes, "Memory used"},
    {MetricUnit::Bytes, "Memory installed"},
    {MetricUnit::Level, "Memory pressure"},
    {MetricUnit::Bytes, "Memory wired"},
    {MetricUnit::Bytes, "Memory compressed"},
    {MetricUnit::Bytes, "Disk free"},
    {MetricUnit::Bytes, "Disk size"},
    {MetricUnit::BytesPerSecond, "Disk reading"},
    {MetricUnit::BytesPerSecond, "Disk writing"},
    {MetricUnit::BytesPerSecond, "Download"},
    {MetricUnit::BytesPerSecond, "Upload"},
    {MetricUnit::Percent, "Battery"},
    {MetricUnit::Percent, "Battery health"},
    {MetricUnit::Minutes, "Battery time left"},
    {MetricUnit::Percent, "GPU"},
    {MetricUnit::Bytes, "GPU memory"},
    {MetricUnit::Celsius, "CPU temperature"},
    {MetricUnit::Celsius, "GPU temperature"},
    {MetricUnit::Rpm, "Fan speed"},
    {MetricUnit::Watts, "Power"},
    {MetricUnit::Score, "Energy impact"},
}};

std::string threeDigits(double value) {
  const double size = std::abs(value);
  if (size >= 99.95 || size == 0.0) return fmt::format("{:.0f}", value);
  return size >= 9.995 ? fmt::format("{:.1f}", value) : fmt::format("{:.2f}", value);
}

using NumberText = std::string (*)(double);

// Up to nine digits keep what an axis needs and lose what binary fractions add to 0.1 × 3.
std::string shortest(double value) {
  return fmt::format("{:.9g}", value);
}

std::string bytesText(double value, NumberText number) {
  constexpr std::array kUnits{"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
  std::size_t unit = 0;
  // 1023.6 would be written as 1024.
  while (std::abs(value) >= 1'023.5 && unit + 1 < kUnits.size()) {
    value /= 1'024.0;
    ++unit;
  }
  return fmt::format("{} {}", unit == 0 ? fmt::format("{:.0f}", value) : number(value), kUnits[unit]);
}

std::string levelText(double value, NumberText number) {
  if (value == 0.0) return "normal";
  if (value == 1.0) return "warning";
  if (value == 2.0) return "critical";
  return number(value);  // the mean of different levels
}

std::string textOf(double value, MetricUnit unit, NumberText number) {
  if (!std::isfinite(value)) return fmt::format("{}", value);
  switch (unit) {
    case MetricUnit::Percent:
      return number(value) + " %";
    case MetricUnit::Bytes:
      return bytesText(value, number);
    case MetricUnit::BytesPerSecond:
      return bytesText(value, number) + "/s";
    case MetricUnit::Minutes:
      return number(value) + " min";
    case MetricUnit::Celsius:
      return number(value) + " °C";
    case MetricUnit::Rpm:
      return fmt::format("{:.0f} rpm", value);
    case MetricUnit::Watts:
      return number(value) + " W";
    case MetricUnit::Level:
      return levelText(value, number);
    case MetricUnit::Score:
      return number(value);
  }
  return number(value);
}

}  // namespace

MetricUnit unitOf(MetricID metric) {
  return kFacts.at(static_cast<std::size_t>(metric)).unit;
}

std::string metricTitle(MetricID metric) {
  return kFacts.at(static_cast<std::size_t>(metric)).title;
}

std::string valueText(double value, MetricUnit unit) {
  return textOf(value, unit, threeDigits);
}

std::string tickText(double value, MetricUnit unit) {
  return textOf(value, unit, shortest);
}

}  // namespace monitor::vesk
