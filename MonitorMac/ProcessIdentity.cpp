// SPDX-License-Identifier: MIT
#include "MonitorMac/ProcessIdentity.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "MonitorCore/ProgrammingError.h"
#include "MonitorCore/Utf8.h"

namespace monitor {
namespace {

std::uint64_t startOf(const ProcessRecord& record) {
  constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  if (record.startSeconds > kMost / kMicrosecondsPerSecond ||
      record.startMicroseconds > kMost - record.startSeconds * kMicrosecondsPerSecond) {
    stopForProgrammingError("a process's start time in microseconds does not fit into 64 bits");
  }
  return record.startSeconds * kMicrosecondsPerSecond + record.startMicroseconds;
}

std::int32_t parentOf(const ProcessRecord& record) {
  if (record.parent > static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max())) {
    stopForProgrammingError("a process's parent is not a process id");
  }
  return static_cast<std::int32_t>(record.parent);
}

}  // namespace

std::optional<ProcessIdentity> processInfo(ProcessTable& table, std::int32_t pid) {
  const auto record = table.record(pid);
  if (!record) return std::nullopt;
  return ProcessIdentity{{pid, startOf(*record)}, parentOf(*record), record->owner};
}

std::string executable(ProcessTable& table, std::int32_t pid) {
  std::string path = table.executablePath(pid);
  // The kernel gives a C string in a buffer.
  path.resize(std::min(path.find('\0'), path.size()));
  return repairedUtf8(std::move(path));
}

}  // namespace monitor
