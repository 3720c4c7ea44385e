// SPDX-License-Identifier: MIT
#include "MonitorCore/Json/MetricCoding.h"

#include <string>

namespace monitor::json {
namespace {

template <class Case>
Case decodeCase(const Reader& text, std::optional<Case> (*named)(std::string_view), const char* what) {
  const std::optional<Case> found = named(text.string());
  if (!found) text.fail(text.quoted() + " is not a " + what);
  return *found;
}

}  // namespace

Writer encodeMetricReading(const MetricReading& reading) {
  Writer object = Writer::object();
  if (reading.value) object.set("value", *reading.value);
  object.set("unit", rawValue(reading.unit));
  object.set("source", reading.source);
  object.set("state", rawValue(reading.state));
  object.set("timestamp", reading.timestamp.secondsSince2001);
  if (reading.detail) object.set("detail", *reading.detail);
  return object;
}

MetricReading decodeMetricReading(const Reader& object) {
  std::optional<double> value;
  if (const auto number = object.find("value")) value = number->number();
  const auto unit = decodeCase(object.at("unit"), metricUnit, "metric unit");
  std::string source = object.at("source").string();
  const auto state = decodeCase(object.at("state"), metricState, "metric state");
  const Date timestamp{object.at("timestamp").number()};
  std::optional<std::string> detail;
  if (const auto text = object.find("detail")) detail = text->string();
  MetricReading reading(value, unit, std::move(source), state, timestamp, std::move(detail));
  reading.state = state;  // the initialiser may have corrected it
  return reading;
}

Writer encodeMetricReadings(const MetricReadings& readings) {
  Writer list = Writer::array();
  for (const auto& [metric, reading] : readings) {
    list.append(rawValue(metric));
    list.append(encodeMetricReading(reading));
  }
  return list;
}

MetricReadings decodeMetricReadings(const Reader& list) {
  const std::size_t count = list.size();
  if (count % 2 != 0)
    list.fail("expected pairs of a metric and its reading, found an odd number of elements");
  MetricReadings readings;
  for (std::size_t index = 0; index < count; index += 2) {
    const auto metric = decodeCase(list[index], metricID, "metric");
    readings.insert_or_assign(metric, decodeMetricReading(list[index + 1]));
  }
  return readings;
}

}  // namespace monitor::json
