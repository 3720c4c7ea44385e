// SPDX-License-Identifier: MIT
#include "MonitorCore/ProcessJoin.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

namespace monitor {
namespace {

constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;

using Offset = std::optional<std::int64_t>;  // µs; absent when the two cannot be the same process

Offset offsetOf(const AdvancedProcessReading& reading, const ProcessIdentities& known) {
  const auto found = known.find(reading.key.pid);
  if (found == known.end()) return std::nullopt;
  // Unsigned, so that no pair of starts overflows.
  const auto offset = static_cast<std::int64_t>(reading.key.start - found->second.start);
  return offset % kMicrosecondsPerSecond == 0 ? Offset(offset) : std::nullopt;
}

// Comparable without the overflow of the smallest number's opposite.
std::uint64_t size(std::int64_t offset) {
  const auto bits = static_cast<std::uint64_t>(offset);
  return offset < 0 ? 0 - bits : bits;
}

Offset commonOffset(const std::vector<AdvancedProcessReading>& readings, const ProcessIdentities& known) {
  std::map<std::int64_t, std::size_t> votes;
  for (const AdvancedProcessReading& reading : readings) {
    if (const Offset offset = offsetOf(reading, known)) ++votes[*offset];
  }
  Offset best;
  std::size_t most = 0;
  for (const auto& [offset, count] : votes) {
    if (count < most || (count == most && best && size(offset) >= size(*best))) continue;
    best = offset;
    most = count;
  }
  return best;
}

}  // namespace

std::vector<AdvancedProcessReading> underKnownKeys(const std::vector<AdvancedProcessReading>& readings,
                                                   const ProcessIdentities& known) {
  std::vector<AdvancedProcessReading> joined;
  const Offset common = commonOffset(readings, known);
  if (!common) return joined;
  for (AdvancedProcessReading reading : readings) {
    if (offsetOf(reading, known) != common) continue;
    reading.key = known.at(reading.key.pid);
    joined.push_back(reading);
  }
  return joined;
}

}  // namespace monitor
