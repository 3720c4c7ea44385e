// SPDX-License-Identifier: MIT
#include "Tools/vesk/Agent/ProgramPresence.h"

#include <algorithm>
#include <optional>

namespace monitor::vesk {
namespace {

std::uint64_t startOf(const ProcessRecord& record) {
  return record.startSeconds * 1'000'000 + record.startMicroseconds;
}

}  // namespace

std::vector<ProcessKey> ProcessTablePresence::presentKeys(const AudioApplication& app) {
  std::vector<ProcessKey> keys;
  for (const ProcessKey& key : app.processes) {
    if (const auto record = table_.record(key.pid)) keys.push_back({key.pid, startOf(*record)});
  }
  return keys;
}

void ProcessTablePresence::saw(const AudioApplication& app) {
  seen_[app.id] = presentKeys(app);
}

bool ProcessTablePresence::lives(const AudioApplication& app) {
  const auto seen = seen_.find(app.id);
  if (seen != seen_.end()) {
    for (const ProcessKey& key : seen->second) {
      const auto record = table_.record(key.pid);
      if (record && startOf(*record) == key.start) return true;
    }
  }
  // The processes that played may be gone while others of the same program go on: a browser's audio process,
  // say.
  return app.bundleID && bundleRuns(*app.bundleID);
}

bool ProcessTablePresence::bundleRuns(const std::string& identifier) {
  const std::vector<std::int32_t> pids = table_.allPids();
  return std::any_of(pids.begin(), pids.end(), [&](std::int32_t pid) {
    const auto record = table_.record(pid);
    if (!record || record->owner != owner_) return false;
    const auto bundle = bundles_.bundleOfProcess(pid, table_.executablePath(pid));
    return bundle && bundle->identifier == identifier;
  });
}

}  // namespace monitor::vesk
