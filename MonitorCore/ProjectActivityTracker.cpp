// SPDX-License-Identifier: MIT
#include "MonitorCore/ProjectActivityTracker.h"

#include <algorithm>
#include <unordered_set>

#include "MonitorCore/SampleGap.h"

namespace monitor {
namespace {

constexpr double kIdleCpu = 1.0;      // percent of one core
constexpr double kIdleDisk = 1024.0;  // bytes per second, read and written

// Absent figures are not idleness, and neither is NaN, which fails every comparison.
bool isIdle(const ProcessSample& process) {
  return process.cpu && *process.cpu < kIdleCpu && process.diskRead && process.diskWrite &&
         *process.diskRead + *process.diskWrite < kIdleDisk && !process.ports.empty();
}

}  // namespace

void ProjectActivityTracker::observe(const std::vector<ProcessSample>& processes, Date date) {
  if (breaksRun(previous_, date)) starts_.clear();
  previous_ = date;

  std::unordered_set<ProcessKey> idle;
  for (const ProcessSample& process : processes) {
    if (isIdle(process)) idle.insert(process.key);
  }
  std::erase_if(starts_, [&idle](const auto& entry) { return !idle.contains(entry.first); });
  for (const ProcessKey& key : idle) starts_.try_emplace(key, date);

  lowActivitySeconds_.clear();
  for (const auto& [key, start] : starts_) lowActivitySeconds_[key] = std::max(0.0, date.secondsSince(start));
}

void ProjectActivityTracker::reset() {
  starts_.clear();
  previous_.reset();
  lowActivitySeconds_.clear();
}

}  // namespace monitor
