// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/MonitorSnapshot.h"

// Recordings of snapshots: one JSON object a line, as docs/recording.md describes it. A line holds everything
// of a snapshot except the processes of its apps.
namespace monitor {

// The object of a line that readers of snapshots and readers of processes both take: the snapshot, and under
// "processes" those of its apps. Throws as encodeSnapshot() does.
[[nodiscard]] json::Writer recordingObject(const MonitorSnapshot& snapshot);

// Without the line feed. Throws json::EncodeError where a text is not UTF-8 or a reading's value or time is
// not finite, which the sampler never leaves in one.
[[nodiscard]] std::string encodeSnapshot(const MonitorSnapshot& snapshot);

// Only "timestamp" and "interval" are required. Throws json::DecodeError naming the path of what is wrong.
// Keys that it does not know are ignored.
[[nodiscard]] MonitorSnapshot decodeSnapshot(std::string_view line);

}  // namespace monitor
