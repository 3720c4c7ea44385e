// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/AppUsage.h"
#include "MonitorCore/MonitorAlertRules.h"

namespace monitor::testing {

// The alert rules step by step, with plain lists and maps. What the real rules are compared with.
struct NaiveAlertRules {
  std::optional<double> lastSample;
  std::map<std::string, double> starts;
  std::map<std::string, std::vector<std::pair<double, double>>> memory;  // (date, bytes)
  std::map<std::string, double> sent;

  std::vector<MonitorAlert> evaluate(const std::vector<AppUsage>& apps, double date,
                                     const MonitorPreferences& preferences);

 private:
  void reset();
  bool coolDownOver(const std::string& key, double date) const;
};

}  // namespace monitor::testing
