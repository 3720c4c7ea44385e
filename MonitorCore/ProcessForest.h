// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <limits>
#include <vector>

#include "MonitorCore/ProcessSample.h"

namespace monitor {

// The parent links of one sample's processes, checked once for all. A process's parent is the first process
// in input order that has the pid it names; the link holds only when both belong to the same user and the
// parent did not start after its child (then its pid was reused). Following links therefore never leaves the
// first process's user.
//
// Processes are named by their index in the sample. A later process with a pid that was there before
// ("repeat") is nobody's parent but may have one. Links may form cycles. Refers to the sample, which must
// outlive it unchanged.
class ProcessForest {
 public:
  static constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

  explicit ProcessForest(const std::vector<ProcessSample>& processes);

  [[nodiscard]] std::size_t size() const { return parents_.size(); }
  // The parent's index, or kNone.
  [[nodiscard]] std::size_t parent(std::size_t index) const { return parents_[index]; }
  // The first process with the same pid: `index` itself unless it is a repeat.
  [[nodiscard]] std::size_t first(std::size_t index) const { return firsts_[index]; }
  [[nodiscard]] bool isRepeat(std::size_t index) const { return firsts_[index] != index; }

  // For every process that is not a repeat: the nearest marked process at or above it, kNone where the walk
  // up ends or comes full circle without meeting one. Linear in the number of processes, however deep they
  // nest.
  [[nodiscard]] std::vector<std::size_t> nearestMarked(const std::vector<bool>& marked) const;

 private:
  std::vector<std::size_t> parents_;
  std::vector<std::size_t> firsts_;
};

}  // namespace monitor
