// SPDX-License-Identifier: MIT
#pragma once

#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/MetricReading.h"

// The JSON form of readings, shared by every payload that carries them.
namespace monitor::json {

// A keyed object; "value" and "detail" are left out when absent. Decoding keeps the state as written, also
// where it says Available and there is no value.
[[nodiscard]] Writer encodeMetricReading(const MetricReading& reading);
[[nodiscard]] MetricReading decodeMetricReading(const Reader& object);

// A flat array that alternates a metric's raw value and its reading, because metrics are not usable as object
// keys. An odd number of elements is refused; of a metric that stands twice the last reading wins.
[[nodiscard]] Writer encodeMetricReadings(const MetricReadings& readings);
[[nodiscard]] MetricReadings decodeMetricReadings(const Reader& list);

}  // namespace monitor::json
