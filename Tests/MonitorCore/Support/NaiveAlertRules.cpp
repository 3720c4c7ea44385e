// SPDX-License-Identifier: MIT
#include "Tests/MonitorCore/Support/NaiveAlertRules.h"

#include <sstream>

namespace monitor::testing {
namespace {

// The pieces between "|", without the empty ones.
std::vector<std::string> split(const std::string& key) {
  std::vector<std::string> pieces;
  std::istringstream stream(key);
  std::string piece;
  while (std::getline(stream, piece, '|')) {
    if (!piece.empty()) pieces.push_back(piece);
  }
  return pieces;
}

bool contains(const std::vector<AppUsage>& apps, const std::string& id) {
  for (const AppUsage& app : apps) {
    if (app.id == id) return true;
  }
  return false;
}

double orZero(const std::optional<double>& value) {
  return value ? *value : 0.0;
}

}  // namespace

void NaiveAlertRules::reset() {
  starts.clear();
  memory.clear();
  lastSample.reset();
}

bool NaiveAlertRules::coolDownOver(const std::string& key, double date) const {
  constexpr double kDistantPast = -63114076800.0;  // the first of January of the year 1
  const double last = sent.count(key) > 0 ? sent.at(key) : kDistantPast;
  return date - last >= 1800.0;
}

std::vector<MonitorAlert> NaiveAlertRules::evaluate(const std::vector<AppUsage>& apps, double date,
                                                    const MonitorPreferences& preferences) {
  if (!preferences.alertsEnabled) {
    reset();
    return {};
  }
  if (lastSample && (date - *lastSample > 90.0 || date < *lastSample)) {
    starts.clear();
    memory.clear();
  }
  lastSample = date;

  std::vector<AppUsage> eligible;
  for (const AppUsage& app : apps) {
    if (preferences.excludedApps.count(app.id) == 0) eligible.push_back(app);
  }
  for (auto entry = starts.begin(); entry != starts.end();) {
    const std::vector<std::string> pieces = split(entry->first);
    entry = contains(eligible, pieces.empty() ? "" : pieces.front()) ? std::next(entry) : starts.erase(entry);
  }
  for (auto entry = memory.begin(); entry != memory.end();) {
    entry = contains(eligible, entry->first) ? std::next(entry) : memory.erase(entry);
  }

  std::vector<MonitorAlert> alerts;
  for (const AppUsage& app : eligible) {
    struct Rule {
      std::string kind;
      bool over;
      double duration;
      std::string detail;
    };
    const std::vector<Rule> rules{
        {"cpu", preferences.cpuThreshold <= orZero(app.cpu), preferences.cpuDuration,
         "CPU stayed above " + std::to_string(static_cast<long long>(preferences.cpuThreshold)) +
             "% of one core."},
        {"disk",
         preferences.diskThreshold > 0 &&
             preferences.diskThreshold <= orZero(app.diskRead) + orZero(app.diskWrite),
         300, "Sustained disk activity exceeded your threshold."},
        {"network",
         preferences.networkThreshold > 0 &&
             preferences.networkThreshold <= orZero(app.download) + orZero(app.upload),
         300, "Sustained network activity exceeded your threshold."}};
    for (const Rule& rule : rules) {
      const std::string key = app.id + "|" + rule.kind;
      if (!rule.over) {
        starts.erase(key);
        continue;
      }
      if (starts.count(key) == 0) starts[key] = date;
      if (date - starts[key] >= rule.duration && coolDownOver(key, date)) {
        alerts.push_back({key, app.id, app.name + " is busy", rule.detail});
        sent[key] = date;
      }
    }

    std::vector<std::pair<double, double>> history = memory[app.id];
    history.emplace_back(date, static_cast<double>(app.memory));
    std::vector<std::pair<double, double>> kept;
    for (const auto& entry : history) {
      if (date - entry.first <= 3660.0) kept.push_back(entry);
    }
    memory[app.id] = kept;
    if (kept.empty()) continue;
    const auto [firstDate, firstBytes] = kept.front();
    const double bytes = static_cast<double>(app.memory);
    if (date - firstDate < 3600.0) continue;
    if (bytes - firstBytes < preferences.memoryGrowthBytes) continue;
    if (bytes < 1.5 * firstBytes) continue;
    const std::string key = app.id + "|memory";
    if (!coolDownOver(key, date)) continue;
    alerts.push_back({key, app.id, app.name + " is using more memory",
                      "Its process footprint grew over the last hour. Review the app to see why."});
    sent[key] = date;
  }
  return alerts;
}

}  // namespace monitor::testing
