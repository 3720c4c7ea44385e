// SPDX-License-Identifier: MIT
#include "MonitorCore/MonitorHistoryStoreRows.h"

#include <array>
#include <cmath>

#include "MonitorCore/MonitorSnapshot.h"

namespace monitor::history {
namespace {

struct AppMetric {
  MetricID metric;
  bool fromHelper;
};
constexpr std::array kAppMetrics{
    AppMetric{MetricID::Cpu, false},         AppMetric{MetricID::MemoryUsed, false},
    AppMetric{MetricID::DiskRead, false},    AppMetric{MetricID::DiskWrite, false},
    AppMetric{MetricID::Download, true},     AppMetric{MetricID::Upload, true},
    AppMetric{MetricID::EnergyImpact, true},
};

// A helper reading carries its own time; the helper's per-app figures have only the snapshot's.
void addReadings(std::vector<Row>& rows, const MonitorSnapshot& snapshot, double now, bool fresh) {
  for (const auto& [metric, reading] : snapshot.readings) {
    if (reading.state != MetricState::Available || !reading.value || !std::isfinite(*reading.value)) continue;
    if (reading.source != kPowermetricsSource) {
      rows.push_back({"", rawValue(metric), *reading.value, now, snapshot.interval});
    } else if (fresh) {
      rows.push_back({"", rawValue(metric), *reading.value, reading.timestamp.secondsSince1970(),
                      snapshot.advancedInterval});
    }
  }
}

void addApp(std::vector<Row>& rows, const AppUsage& app, const MonitorSnapshot& snapshot, double now,
            bool fresh) {
  for (const auto& [metric, fromHelper] : kAppMetrics) {
    if (fromHelper && !fresh) continue;
    const auto value = app.value(metric);
    if (!value || !std::isfinite(*value)) continue;
    if (fromHelper) {
      rows.push_back({app.id, rawValue(metric), *value, snapshot.advancedTimestamp->secondsSince1970(),
                      snapshot.advancedInterval});
    } else {
      rows.push_back({app.id, rawValue(metric), *value, now, snapshot.interval});
    }
  }
}

}  // namespace

std::vector<Row> rowsOf(const MonitorSnapshot& snapshot, double now, bool fresh) {
  std::vector<Row> rows;
  rows.reserve(snapshot.readings.size() + snapshot.apps.size() * kAppMetrics.size());
  addReadings(rows, snapshot, now, fresh);
  for (const AppUsage& app : snapshot.apps) addApp(rows, app, snapshot, now, fresh);
  return rows;
}

}  // namespace monitor::history
