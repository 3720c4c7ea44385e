// SPDX-License-Identifier: MIT
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "MonitorCore/Recording.h"
#include "MonitorCore/SnapshotRecording.h"

// Snapshot lines: whatever is accepted can be written, and what is written reads as the same again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  monitor::RecordingReader reader(in, "input");
  try {
    while (const auto snapshot = reader.next(monitor::decodeSnapshot)) {
      const std::string line = monitor::encodeSnapshot(*snapshot);
      if (monitor::encodeSnapshot(monitor::decodeSnapshot(line)) != line) std::abort();
    }
  } catch (const monitor::RecordingError&) {
  }
  return 0;
}
