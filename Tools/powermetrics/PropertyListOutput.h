// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>

#include "MonitorCore/Date.h"
#include "Platform/Linux/Power/PowerMeter.h"
#include "Tools/powermetrics/Options.h"

namespace monitor::powermetrics {

// Readers refuse lists of more than 20,000 elements altogether.
inline constexpr std::size_t kMostTasks = 16'000;

// A reading, taken at `at`, as an XML property list that ends with a line break. Keys and sections without a
// figure are left out. Of more than kMostTasks tasks those that did most are kept.
[[nodiscard]] std::string propertyList(const platform::PowerReading& reading, const Options& options,
                                       Date at);

}  // namespace monitor::powermetrics
