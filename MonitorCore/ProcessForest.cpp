// SPDX-License-Identifier: MIT
#include "MonitorCore/ProcessForest.h"

#include <algorithm>
#include <bit>
#include <cstdint>

namespace monitor {
namespace {

using Index = ProcessForest::Index;
constexpr Index kNone = ProcessForest::kNone;

// What the links depend on, side by side: samples are large, and parents may be anywhere among them.
struct Node {
  std::int32_t pid;
  std::int32_t parentPID;
  std::uint64_t start;
  std::uint32_t owner;
};

std::vector<Node> nodesOf(const std::vector<ProcessSample>& processes) {
  std::vector<Node> nodes;
  nodes.reserve(processes.size());
  for (const ProcessSample& process : processes) {
    nodes.push_back({process.key.pid, process.parentPID, process.key.start, process.owner});
  }
  return nodes;
}

// The first process of each pid. Open addressing over indices: no allocation for each process, and pids that
// follow each other, as those of a parent and its children do, lie side by side.
class FirstByPid {
 public:
  explicit FirstByPid(const std::vector<Node>& nodes)
      : nodes_(nodes),
        slots_(std::bit_ceil(2 * std::max(nodes.size(), kSlotsTogether)), kNone),
        shift_(64 - static_cast<unsigned>(std::countr_zero(slots_.size() / kSlotsTogether))) {}

  // The index that was added first for the pid of the node at `index`.
  Index add(Index index) {
    Index& slot = slots_[placeOf(nodes_[index].pid)];
    if (slot == kNone) slot = index;
    return slot;
  }
  [[nodiscard]] Index find(std::int32_t pid) const { return slots_[placeOf(pid)]; }

 private:
  static constexpr std::size_t kSlotsTogether = 64;
  static constexpr std::uint64_t kGoldenRatio = 0x9e3779b97f4a7c15ULL;  // spreads over the upper bits

  // The slot of the pid, or the free one where it belongs.
  [[nodiscard]] std::size_t placeOf(std::int32_t pid) const {
    const auto number = static_cast<std::uint32_t>(pid);
    const std::uint64_t block = (number / kSlotsTogether * kGoldenRatio) >> shift_;
    std::size_t place = static_cast<std::size_t>(block) * kSlotsTogether + number % kSlotsTogether;
    while (slots_[place] != kNone && nodes_[slots_[place]].pid != pid) {
      place = (place + 1) & (slots_.size() - 1);
    }
    return place;
  }

  const std::vector<Node>& nodes_;
  std::vector<Index> slots_;
  unsigned shift_;
};

}  // namespace

ProcessForest::ProcessForest(const std::vector<ProcessSample>& processes)
    : parents_(processes.size(), kNone), firsts_(processes.size()) {
  const std::vector<Node> nodes = nodesOf(processes);
  FirstByPid firstByPid(nodes);
  for (Index index = 0; index < size(); ++index) {
    firsts_[index] = firstByPid.add(index);
    if (firsts_[index] != index) hasRepeats_ = true;
  }
  for (Index index = 0; index < size(); ++index) {
    const Node& child = nodes[index];
    const Index found = firstByPid.find(child.parentPID);
    if (found == kNone) continue;
    const Node& parent = nodes[found];
    if (parent.owner == child.owner && child.start >= parent.start) parents_[index] = found;
  }
}

std::vector<Index> ProcessForest::nearestMarked(const std::vector<bool>& marked) const {
  enum class State : std::uint8_t { Unknown, OnPath, Known };
  std::vector<State> states(size(), State::Unknown);
  std::vector<Index> nearest(size(), kNone);
  std::vector<Index> path;
  for (Index start = 0; start < size(); ++start) {
    if (isRepeat(start)) continue;
    Index index = start;
    while (index != kNone && states[index] == State::Unknown && !marked[index]) {
      states[index] = State::OnPath;
      path.push_back(index);
      index = parents_[index];
    }
    Index found = kNone;
    if (index != kNone && states[index] != State::OnPath) {  // on the path: a cycle without a mark
      found = states[index] == State::Known ? nearest[index] : index;
    }
    for (const Index passed : path) {
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
