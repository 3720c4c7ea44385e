// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "MonitorCore/Date.h"
#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/ProcessSample.h"

// Recordings of processes: one JSON object a line, as docs/recording.md describes it.
namespace monitor {

// The processes of one sample. The date may be anything, the figures too: the rules can be tried on jumping
// clocks and broken samplers.
struct RecordedProcesses {
  Date timestamp;
  std::vector<ProcessSample> processes;
};

// The object of one process, and the list of several, as a line holds it.
[[nodiscard]] json::Writer processObject(const ProcessSample& process);
[[nodiscard]] json::Writer processList(const std::vector<ProcessSample>& processes);

// Without the line feed. Throws json::EncodeError where a text is not UTF-8.
[[nodiscard]] std::string encodeProcesses(const RecordedProcesses& sample);

// Throws json::DecodeError naming the path of what is wrong. Keys that it does not know are ignored.
[[nodiscard]] RecordedProcesses decodeProcesses(std::string_view line);

}  // namespace monitor
