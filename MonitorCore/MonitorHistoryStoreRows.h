// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>
#include <vector>

namespace monitor {
struct MonitorSnapshot;
}

namespace monitor::history {

// The longest interval and the longest row that are stored, in seconds.
inline constexpr double kLongestSampleSeconds = 90.0;

// One value and the stretch of time it stands for. The texts belong to the snapshot and the metric
// vocabulary.
struct Row {
  std::string_view app;  // empty for machine-wide readings
  std::string_view metric;
  double value;
  double end;     // seconds since 1970
  double weight;  // seconds up to `end` that the value covers
};

// What a snapshot taken at `now` (its timestamp in seconds since 1970) has to store: its usable machine-wide
// readings, then the seven per-app metrics app by app. Helper readings are in it only when they are `fresh`,
// which takes a snapshot that has an advancedTimestamp.
[[nodiscard]] std::vector<Row> rowsOf(const MonitorSnapshot& snapshot, double now, bool fresh);

}  // namespace monitor::history
