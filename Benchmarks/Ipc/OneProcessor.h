// SPDX-License-Identifier: MIT
#pragma once

#include <sched.h>

namespace monitor::bench {

// As long as it lives, the calling thread and the processes it starts stay on one of the processors that it
// may use. What they share that processor with may move, and on a busy machine does.
class OneProcessor {
 public:
  OneProcessor() {
    if (sched_getaffinity(0, sizeof(former_), &former_) != 0) return;
    int last = CPU_SETSIZE - 1;
    while (last > 0 && !CPU_ISSET(last, &former_)) --last;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(last, &one);
    changed_ = sched_setaffinity(0, sizeof(one), &one) == 0;
  }
  ~OneProcessor() {
    if (changed_) sched_setaffinity(0, sizeof(former_), &former_);
  }
  OneProcessor(const OneProcessor&) = delete;
  OneProcessor& operator=(const OneProcessor&) = delete;

 private:
  cpu_set_t former_{};
  bool changed_ = false;
};

}  // namespace monitor::bench
