// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "MonitorCore/AppUsage.h"
#include "MonitorCore/ProcessSample.h"
#include "MonitorCore/ProjectGrouper.h"

// Records as text in which every bit of every field counts: equal texts are equal records, NaN included,
// which no operator== can say.
namespace monitor::testing {

[[nodiscard]] std::string describe(const ProcessSample& sample);
// Samples of equal pid have no defined order and are put into one.
[[nodiscard]] std::string describeByPid(std::vector<ProcessSample> samples);
[[nodiscard]] std::string describe(const std::vector<AppUsage>& rows);
[[nodiscard]] std::string describe(const std::vector<MonitorProject>& projects);

}  // namespace monitor::testing
