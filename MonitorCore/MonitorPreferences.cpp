// SPDX-License-Identifier: MIT
#include "MonitorCore/MonitorPreferences.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "MonitorCore/Json/StrictJson.h"

namespace monitor {
namespace {

constexpr double kGibibyte = 1073741824.0;
constexpr double kSmallestMemoryGrowth = 268435456.0;  // 256 MiB

constexpr std::array<std::string_view, 5> kPinMetrics{"combined", "cpu", "memory", "network", "battery"};
constexpr std::array<std::string_view, 4> kMenuStyles{"icon", "number", "graph", "stacked"};

double clampedOr(double fallback, double value, double low, double high) {
  return std::isfinite(value) ? std::clamp(value, low, high) : fallback;
}

double zeroUnlessPositive(double value) {
  return std::isfinite(value) && value >= 0.0 ? value : 0.0;
}

template <std::size_t count>
void keepIfOneOf(const std::array<std::string_view, count>& known, std::string& text) {
  if (std::find(known.begin(), known.end(), text) == known.end()) text = known.front();
}

}  // namespace

void MonitorPreferences::normalize() {
  if (retentionDays != 1 && retentionDays != 7) retentionDays = 30;
  cpuThreshold = clampedOr(80.0, cpuThreshold, 10.0, 10000.0);
  cpuDuration = clampedOr(600.0, cpuDuration, 60.0, 3600.0);
  // The fallback is the default, not the floor.
  memoryGrowthBytes =
      std::isfinite(memoryGrowthBytes) ? std::max(memoryGrowthBytes, kSmallestMemoryGrowth) : kGibibyte;
  diskThreshold = zeroUnlessPositive(diskThreshold);
  networkThreshold = zeroUnlessPositive(networkThreshold);
  keepIfOneOf(kPinMetrics, pinMetric);
  keepIfOneOf(kMenuStyles, menuStyle);
}

Data encodePreferences(const MonitorPreferences& preferences) {
  json::Writer object = json::Writer::object();
  object.set("historyEnabled", preferences.historyEnabled);
  object.set("historyPaused", preferences.historyPaused);
  object.set("retentionDays", preferences.retentionDays);
  object.set("alertsEnabled", preferences.alertsEnabled);
  object.set("cpuThreshold", preferences.cpuThreshold);
  object.set("cpuDuration", preferences.cpuDuration);
  object.set("memoryGrowthBytes", preferences.memoryGrowthBytes);
  object.set("diskThreshold", preferences.diskThreshold);
  object.set("networkThreshold", preferences.networkThreshold);
  json::Writer excluded = json::Writer::array();
  for (const std::string& app : preferences.excludedApps) excluded.append(app);
  object.set("excludedApps", std::move(excluded));
  object.set("pinMetric", preferences.pinMetric);
  object.set("menuStyle", preferences.menuStyle);
  object.set("menuMetric", preferences.menuMetric);
  return object.text();
}

MonitorPreferences decodePreferences(std::string_view bytes) {
  const json::Document document(bytes);
  const json::Reader object = document.root();
  MonitorPreferences preferences;
  preferences.historyEnabled = object.at("historyEnabled").boolean();
  preferences.historyPaused = object.at("historyPaused").boolean();
  preferences.retentionDays = object.at("retentionDays").integer<std::int64_t>();
  preferences.alertsEnabled = object.at("alertsEnabled").boolean();
  preferences.cpuThreshold = object.at("cpuThreshold").number();
  preferences.cpuDuration = object.at("cpuDuration").number();
  preferences.memoryGrowthBytes = object.at("memoryGrowthBytes").number();
  preferences.diskThreshold = object.at("diskThreshold").number();
  preferences.networkThreshold = object.at("networkThreshold").number();
  const json::Reader excluded = object.at("excludedApps");
  for (std::size_t index = 0; index < excluded.size(); ++index) {
    preferences.excludedApps.insert(excluded[index].string());
  }
  preferences.pinMetric = object.at("pinMetric").string();
  preferences.menuStyle = object.at("menuStyle").string();
  preferences.menuMetric = object.at("menuMetric").string();
  return preferences;
}

}  // namespace monitor
