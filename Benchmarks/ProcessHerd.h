// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace monitor::bench {

// Many small processes with one thread and some twenty descriptors each, to be sampled. They end with the
// herd, and with this process.
class ProcessHerd {
 public:
  struct Kind {
    std::size_t count = 0;
    bool active = false;        // each wakes up four times a second; otherwise they wait
    std::size_t listeners = 0;  // so many of them hold a listening TCP socket of their own
    friend bool operator==(const Kind&, const Kind&) = default;
  };

  // Returns when all of them run. Throws std::runtime_error when the machine does not let them.
  explicit ProcessHerd(const Kind& kind);
  ~ProcessHerd();
  ProcessHerd(const ProcessHerd&) = delete;
  ProcessHerd& operator=(const ProcessHerd&) = delete;

  [[nodiscard]] const Kind& kind() const { return kind_; }

 private:
  Kind kind_;
  pid_t shepherd_ = -1;
  int leash_ = -1;  // the shepherd ends the others when this is closed
};

}  // namespace monitor::bench
