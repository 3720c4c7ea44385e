// SPDX-License-Identifier: MIT
#include "MonitorCore/AdvancedMerge.h"

#include <cmath>
#include <optional>
#include <unordered_map>
#include <vector>

#include "MonitorCore/ProcessJoin.h"

namespace monitor {
namespace {

using ReadingsByKey = std::unordered_map<ProcessKey, const AdvancedProcessReading*>;

ProcessIdentities identitiesOf(const std::vector<AppUsage>& apps) {
  ProcessIdentities identities;
  for (const AppUsage& app : apps) {
    for (const ProcessSample& process : app.processes) identities.emplace(process.key.pid, process.key);
  }
  return identities;
}

// The same sum as the aggregator's: absent and non-finite figures are left out.
std::optional<double> sum(const std::vector<ProcessSample>& processes,
                          std::optional<double> ProcessSample::*field) {
  std::optional<double> total;
  for (const ProcessSample& process : processes) {
    const std::optional<double>& value = process.*field;
    if (value && std::isfinite(*value)) total = total.value_or(0.0) + *value;
  }
  return total;
}

void mergeInto(AppUsage& app, const ReadingsByKey& readings) {
  bool changed = false;
  for (ProcessSample& process : app.processes) {
    const auto found = readings.find(process.key);
    if (found == readings.end()) continue;
    process.download = found->second->download;
    process.upload = found->second->upload;
    process.energy = found->second->energy;
    changed = true;
  }
  if (!changed) return;
  app.download = sum(app.processes, &ProcessSample::download);
  app.upload = sum(app.processes, &ProcessSample::upload);
  app.energy = sum(app.processes, &ProcessSample::energy);
}

}  // namespace

void mergeAdvanced(MonitorSnapshot& snapshot, const AdvancedSample& sample) {
  for (const auto& [metric, reading] : sample.readings) {
    snapshot.readings.insert_or_assign(metric, reading);
  }
  const auto processes = underKnownKeys(sample.processes, identitiesOf(snapshot.apps));
  ReadingsByKey readings;
  for (const AdvancedProcessReading& process : processes) readings[process.key] = &process;
  for (AppUsage& app : snapshot.apps) mergeInto(app, readings);
  snapshot.advancedTimestamp = sample.timestamp;
  snapshot.advancedInterval = sample.interval;
}

}  // namespace monitor
