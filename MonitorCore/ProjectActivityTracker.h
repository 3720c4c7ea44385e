// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <unordered_map>
#include <vector>

#include "MonitorCore/Date.h"
#include "MonitorCore/ProcessSample.h"

namespace monitor {

// How long each listening process has been idle: little CPU and disk use (network traffic is not considered)
// in every sample since. A process that is busy in one sample, disappears, stops listening or lives through a
// gap in the samples starts again from 0. Fed once per sample; not thread-safe.
class ProjectActivityTracker {
 public:
  using Dates = std::unordered_map<ProcessKey, Date>;
  using Seconds = std::unordered_map<ProcessKey, double>;

  // A gap of more than 90 seconds, or a date before the previous one, restarts every count.
  void observe(const std::vector<ProcessSample>& processes, Date date);
  void reset();

  // Seconds of idleness of every process that was idle in the latest sample; never negative.
  [[nodiscard]] const Seconds& lowActivitySeconds() const { return lowActivitySeconds_; }
  // When each of them was first seen idle.
  [[nodiscard]] const Dates& starts() const { return starts_; }
  [[nodiscard]] std::optional<Date> previous() const { return previous_; }

 private:
  Dates starts_;
  std::optional<Date> previous_;
  Seconds lowActivitySeconds_;
};

}  // namespace monitor
