// SPDX-License-Identifier: MIT
#include "MonitorCore/MonitorAlertRules.h"

#include <cmath>
#include <cstdint>
#include <utility>

#include "MonitorCore/ProgrammingError.h"
#include "MonitorCore/SampleGap.h"

namespace monitor {
namespace {

// All in seconds.
constexpr double kCoolDown = 1800.0;
constexpr double kActivityDuration = 300.0;
constexpr double kMemoryWindow = 3660.0;
constexpr double kMemorySpan = 3600.0;
constexpr double kMemoryGrowthFactor = 1.5;

constexpr std::string_view kDiskDetail = "Sustained disk activity exceeded your threshold.";
constexpr std::string_view kNetworkDetail = "Sustained network activity exceeded your threshold.";
constexpr std::string_view kMemoryDetail =
    "Its process footprint grew over the last hour. Review the app to see why.";

std::string cpuDetail(double threshold) {
  // -2^63 and everything under 2^63 survive the conversion.
  if (!(threshold >= -0x1p63 && threshold < 0x1p63)) {
    stopForProgrammingError("the CPU alert threshold " + std::to_string(threshold) +
                            " is not a number that fits 64 bits; preferences must be normalised before use");
  }
  return "CPU stayed above " + std::to_string(static_cast<std::int64_t>(threshold)) + "% of one core.";
}

double sum(std::optional<double> first, std::optional<double> second) {
  return first.value_or(0.0) + second.value_or(0.0);
}

// The app id of a rule key. Pieces are told apart by "|" and empty ones do not count, so that the timers of
// an app whose id itself holds a "|" do not last.
std::string_view firstPiece(std::string_view key) {
  const std::size_t begin = key.find_first_not_of('|');
  if (begin == std::string_view::npos) return {};
  return key.substr(begin, key.find('|', begin) - begin);
}

}  // namespace

struct MonitorAlertRules::SustainedRule {
  const char* kind;
  bool over;        // the condition holds in this sample
  double duration;  // seconds it must hold
  std::string_view detail;
};

std::vector<MonitorAlert> MonitorAlertRules::evaluate(const std::vector<AppUsage>& apps, Date date,
                                                      const MonitorPreferences& preferences) {
  if (!preferences.alertsEnabled) {
    reset();
    return {};
  }
  if (breaksRun(lastSample_, date)) {
    starts_.clear();
    memory_.clear();
  }
  lastSample_ = date;

  std::vector<const AppUsage*> eligible;
  std::unordered_set<std::string_view> eligibleIds;
  for (const AppUsage& app : apps) {
    if (preferences.excludedApps.contains(app.id)) continue;
    eligible.push_back(&app);
    eligibleIds.insert(app.id);
  }
  forgetOthers(eligibleIds);
  if (eligible.empty()) return {};

  const std::string cpuText = cpuDetail(preferences.cpuThreshold);
  const double disk = preferences.diskThreshold;
  const double network = preferences.networkThreshold;
  std::vector<MonitorAlert> alerts;
  for (const AppUsage* app : eligible) {
    // Unlike the two others the CPU rule has no off position: at 0 every app is over.
    const bool cpuOver = preferences.cpuThreshold <= app->cpu.value_or(0.0);
    const bool diskOver = disk > 0.0 && disk <= sum(app->diskRead, app->diskWrite);
    const bool networkOver = network > 0.0 && network <= sum(app->download, app->upload);
    judgeSustained(*app, {"cpu", cpuOver, preferences.cpuDuration, cpuText}, date, alerts);
    judgeSustained(*app, {"disk", diskOver, kActivityDuration, kDiskDetail}, date, alerts);
    judgeSustained(*app, {"network", networkOver, kActivityDuration, kNetworkDetail}, date, alerts);
    judgeMemory(*app, date, preferences.memoryGrowthBytes, alerts);
  }
  return alerts;
}

void MonitorAlertRules::reset() {
  starts_.clear();
  memory_.clear();
  lastSample_.reset();
}

void MonitorAlertRules::forgetOthers(const std::unordered_set<std::string_view>& eligible) {
  std::erase_if(starts_,
                [&eligible](const auto& entry) { return !eligible.contains(firstPiece(entry.first)); });
  std::erase_if(memory_, [&eligible](const auto& entry) { return !eligible.contains(entry.first); });
}

void MonitorAlertRules::judgeSustained(const AppUsage& app, const SustainedRule& rule, Date date,
                                       std::vector<MonitorAlert>& alerts) {
  if (!rule.over && starts_.empty()) return;  // the usual case, without building the key
  std::string key = app.id + '|' + rule.kind;
  if (!rule.over) {
    starts_.erase(key);
    return;
  }
  const Date start = starts_.try_emplace(key, date).first->second;
  if (date.secondsSince(start) >= rule.duration && mayRaise(key, date)) {
    alerts.push_back({std::move(key), app.id, app.name + " is busy", std::string(rule.detail)});
  }
}

void MonitorAlertRules::judgeMemory(const AppUsage& app, Date date, double growthBytes,
                                    std::vector<MonitorAlert>& alerts) {
  const auto bytes = static_cast<double>(app.memory);
  std::deque<MemoryEntry>& history = memory_[app.id];
  history.push_back({date, bytes});
  // Dates never fall within a run, so what is too old is at the front. A date that is not finite keeps
  // nothing.
  while (!history.empty() && !(date.secondsSince(history.front().date) <= kMemoryWindow)) history.pop_front();
  if (history.empty()) return;

  const MemoryEntry& first = history.front();
  if (date.secondsSince(first.date) < kMemorySpan) return;
  if (bytes - first.bytes < growthBytes) return;
  if (bytes < kMemoryGrowthFactor * first.bytes) return;
  std::string key = app.id + "|memory";
  if (!mayRaise(key, date)) return;
  alerts.push_back({std::move(key), app.id, app.name + " is using more memory", std::string(kMemoryDetail)});
}

// Notes the alert as raised when its cool-down is over.
bool MonitorAlertRules::mayRaise(const std::string& key, Date date) {
  const auto [entry, isNew] = sent_.try_emplace(key, date);
  if (isNew) return true;
  if (!(date.secondsSince(entry->second) >= kCoolDown)) return false;
  entry->second = date;
  return true;
}

}  // namespace monitor
