// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "MonitorCore/Data.h"

namespace monitor {

// The user's settings. A freshly made record holds the defaults. Decoded or edited ones may hold anything;
// callers normalise before use.
struct MonitorPreferences {
  bool historyEnabled = false;
  bool historyPaused = false;
  std::int64_t retentionDays = 30;
  bool alertsEnabled = false;
  double cpuThreshold = 80.0;               // percent of one core
  double cpuDuration = 600.0;               // seconds
  double memoryGrowthBytes = 1073741824.0;  // bytes, 1 GiB
  double diskThreshold = 0.0;               // bytes per second; 0 switches the rule off
  double networkThreshold = 0.0;            // bytes per second; 0 switches the rule off
  std::set<std::string> excludedApps;       // app ids that never raise an alert
  std::string pinMetric = "combined";
  std::string menuStyle = "icon";
  std::string menuMetric = "cpu";

  // Forces every field into its legal range or set. `menuMetric` is left alone on purpose: a metric named by
  // a later version survives, and whoever shows it copes with a name it does not know.
  void normalize();

  friend bool operator==(const MonitorPreferences&, const MonitorPreferences&) = default;
};

// All thirteen fields are written, and all are required when decoding; nothing falls back to a default, and
// nothing is normalised. Throws json::EncodeError on a non-finite number, json::DecodeError naming the
// offending key.
[[nodiscard]] Data encodePreferences(const MonitorPreferences& preferences);
[[nodiscard]] MonitorPreferences decodePreferences(std::string_view bytes);

}  // namespace monitor
