// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

#include "MonitorCore/Ports/AudioBufferList.h"

namespace monitor {

// Whether any route of a service ever heard a sample that is not zero. Where a denied permission is silence
// and not an error, sound is the only proof of permission, and once is enough: what is silent afterwards is
// silent on purpose. One for all routers of a service, which it outlives.
//
// Threads: listen() on any number of realtime threads, heardSound() anywhere. Lock-free.
class SilenceWatch {
 public:
  // Looks at the samples until sound was heard once, and at a flag from then on. Allocates nothing, locks
  // nothing, calls nothing. Minus zero is silence; what is not a number is not.
  void listen(const MonitorAudioBufferList& input) noexcept;

  [[nodiscard]] bool heardSound() const noexcept { return heard_.load(std::memory_order_relaxed); }

 private:
  static_assert(std::atomic<bool>::is_always_lock_free);
  std::atomic<bool> heard_{false};
};

}  // namespace monitor
