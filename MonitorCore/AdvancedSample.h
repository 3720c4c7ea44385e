// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "MonitorCore/Data.h"
#include "MonitorCore/Date.h"
#include "MonitorCore/MetricReading.h"
#include "MonitorCore/ProcessKey.h"

namespace monitor {

// Network and energy figures of one process over the sample's interval.
struct AdvancedProcessReading {
  ProcessKey key;
  std::optional<double> download;  // bytes per second
  std::optional<double> upload;    // bytes per second
  std::optional<double> energy;    // energy impact score

  friend bool operator==(const AdvancedProcessReading&, const AdvancedProcessReading&) = default;
};

// What the privileged helper measured over one interval.
struct AdvancedSample {
  Date timestamp;
  double interval = 0.0;  // seconds
  MetricReadings readings;
  std::vector<AdvancedProcessReading> processes;
  std::vector<std::string> notes;  // remarks for the user; empty ones are not shown

  // One line for the user: how many hardware readings are usable, followed by the notes.
  [[nodiscard]] std::string statusDescription() const;

  friend bool operator==(const AdvancedSample&, const AdvancedSample&) = default;
};

// The helper protocol's payload. Encoding throws json::EncodeError on a non-finite number; decoding throws
// json::DecodeError naming the path of the offending key. Keys other than the named ones are ignored.
[[nodiscard]] Data encodeAdvancedSample(const AdvancedSample& sample);
[[nodiscard]] AdvancedSample decodeAdvancedSample(std::string_view bytes);

}  // namespace monitor
