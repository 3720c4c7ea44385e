// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "MonitorCore/ProcessSample.h"

namespace monitor {

// The parent links of one sample's processes, checked once for all. A process's parent is the first process
// in input order that has the pid it names; the link holds only when both belong to the same user and the
// parent did not start after its child (then its pid was reused). Following links therefore never leaves the
// first process's user.
//
// Processes are named by their index in the sample, in 32 bits: what a large sample costs is memory traffic,
// and no memory holds more samples than that. A later process with a pid that was there before ("repeat") is
// nobody's parent but may have one. Links may form cycles. Keeps nothing of the sample.
class ProcessForest {
 public:
  using Index = std::uint32_t;
  static constexpr Index kNone = std::numeric_limits<Index>::max();

  explicit ProcessForest(const std::vector<ProcessSample>& processes);

  [[nodiscard]] Index size() const { return static_cast<Index>(parents_.size()); }
  // The parent's index, or kNone.
  [[nodiscard]] Index parent(Index index) const { return parents_[index]; }
  // The first process with the same pid: `index` itself unless it is a repeat.
  [[nodiscard]] Index first(Index index) const { return firsts_[index]; }
  [[nodiscard]] bool isRepeat(Index index) const { return firsts_[index] != index; }
  [[nodiscard]] bool hasRepeats() const { return hasRepeats_; }

  // For every process that is not a repeat: the nearest marked process at or above it, kNone where the walk
  // up ends or comes full circle without meeting one. Linear in the number of processes, however deep they
  // nest.
  [[nodiscard]] std::vector<Index> nearestMarked(const std::vector<bool>& marked) const;

 private:
  std::vector<Index> parents_;
  std::vector<Index> firsts_;
  bool hasRepeats_ = false;
};

}  // namespace monitor
