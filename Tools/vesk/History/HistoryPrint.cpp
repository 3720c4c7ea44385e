// SPDX-License-Identifier: MIT
#include "Tools/vesk/History/HistoryPrint.h"

#include <fmt/format.h>

#include <cmath>

#include "MonitorCore/Json/StrictJson.h"
#include "Tools/vesk/History/MetricText.h"
#include "Tools/vesk/Table.h"
#include "Tools/vesk/TimeText.h"

namespace monitor::vesk {
namespace {

void setFinite(json::Writer& object, std::string_view key, double value) {
  if (std::isfinite(value)) object.set(key, value);
}

}  // namespace

std::string pointsTable(const std::vector<HistoryPoint>& points, MetricID metric, const TimeZone& zone,
                        const Terminal& terminal) {
  const MetricUnit unit = unitOf(metric);
  Table table({{"TIME"},
               {"MEAN", Align::Right},
               {"PEAK", Align::Right},
               {"COVERED", Align::Right},
               {"BUCKET", Align::Right}});
  for (const HistoryPoint& point : points) {
    const double share = point.coverage / static_cast<double>(point.resolution) * 100.0;
    table.add({timeText(point.date, zone), valueText(point.value, unit), valueText(point.peak, unit),
               fmt::format("{:.0f} %", share), fmt::format("{} s", point.resolution)});
  }
  return table.text(terminal);
}

std::string pointsCsv(const std::vector<HistoryPoint>& points, const TimeZone& zone) {
  std::string text = "time,seconds,mean,peak,coverage,resolution\n";
  for (const HistoryPoint& point : points) {
    text +=
        fmt::format("{},{:.0f},{},{},{},{}\n", isoTimeText(point.date, zone), point.date.secondsSince1970(),
                    point.value, point.peak, point.coverage, point.resolution);
  }
  return text;
}

std::string pointsJson(const std::vector<HistoryPoint>& points, const TimeZone& zone) {
  json::Writer list = json::Writer::array();
  for (const HistoryPoint& point : points) {
    json::Writer object = json::Writer::object();
    object.set("id", point.id());
    object.set("date", point.date.secondsSince2001);
    object.set("time", isoTimeText(point.date, zone));
    setFinite(object, "value", point.value);
    setFinite(object, "peak", point.peak);
    setFinite(object, "coverage", point.coverage);
    object.set("resolution", point.resolution);
    list.append(std::move(object));
  }
  return list.text() + '\n';
}

std::string coverageText(const HistoryCoverage& coverage, const TimeZone& zone) {
  const std::string size = valueText(static_cast<double>(coverage.bytes), MetricUnit::Bytes);
  if (!coverage.start || !coverage.end) return fmt::format("Nothing recorded; {} on disk.\n", size);
  return fmt::format("Oldest bucket  {}\nNewest bucket  {}\nSize on disk   {}\n",
                     timeText(*coverage.start, zone), timeText(*coverage.end, zone), size);
}

std::string coverageJson(const HistoryCoverage& coverage, const TimeZone& zone) {
  json::Writer object = json::Writer::object();
  if (coverage.start && coverage.end) {
    object.set("start", coverage.start->secondsSince2001);
    object.set("startTime", isoTimeText(*coverage.start, zone));
    object.set("end", coverage.end->secondsSince2001);
    object.set("endTime", isoTimeText(*coverage.end, zone));
  }
  object.set("bytes", coverage.bytes);
  return object.text() + '\n';
}

}  // namespace monitor::vesk
