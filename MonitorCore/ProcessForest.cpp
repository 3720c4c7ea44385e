// SPDX-License-Identifier: MIT
#include "MonitorCore/ProcessForest.h"

#include <cstdint>
#include <unordered_map>

namespace monitor {

ProcessForest::ProcessForest(const std::vector<ProcessSample>& processes)
    : parents_(processes.size(), kNone), firsts_(processes.size()) {
  std::unordered_map<std::int32_t, std::size_t> firstByPid;
  firstByPid.reserve(processes.size());
  for (std::size_t index = 0; index < processes.size(); ++index) {
    firsts_[index] = firstByPid.try_emplace(processes[index].key.pid, index).first->second;
  }
  for (std::size_t index = 0; index < processes.size(); ++index) {
    const ProcessSample& child = processes[index];
    const auto found = firstByPid.find(child.parentPID);
    if (found == firstByPid.end()) continue;
    const ProcessSample& parent = processes[found->second];
    if (parent.owner == child.owner && child.key.start >= parent.key.start) parents_[index] = found->second;
  }
}

std::vector<std::size_t> ProcessForest::nearestMarked(const std::vector<bool>& marked) const {
  enum class State : std::uint8_t { Unknown, OnPath, Known };
  std::vector<State> states(size(), State::Unknown);
  std::vector<std::size_t> nearest(size(), kNone);
  std::vector<std::size_t> path;
  for (std::size_t start = 0; start < size(); ++start) {
    if (isRepeat(start)) continue;
    std::size_t index = start;
    while (index != kNone && states[index] == State::Unknown && !marked[index]) {
      states[index] = State::OnPath;
      path.push_back(index);
      index = parents_[index];
    }
    std::size_t found = kNone;
    if (index != kNone && states[index] != State::OnPath) {  // on the path: a cycle without a mark
      found = states[index] == State::Known ? nearest[index] : index;
    }
    for (const std::size_t passed : path) {
      states[passed] = State::Known;
      nearest[passed] = found;
    }
    path.clear();
    if (states[start] == State::Unknown) {
      states[start] = State::Known;
      nearest[start] = found;
    }
  }
  return nearest;
}

}  // namespace monitor
