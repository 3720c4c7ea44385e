// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace monitor::demo {

// Listens on a message bus and notes when the audio service is told a gain, which is the moment that its work
// begins: whatever the command line and the bus took before that is not its time.
class BusWatch {
 public:
  struct Request {
    std::uint64_t nanoseconds = 0;  // CLOCK_MONOTONIC
    double gain = 0.0;
  };

  // Returns when it listens. lab::LabError when the bus cannot be watched.
  explicit BusWatch(const std::string& busAddress);
  ~BusWatch();
  BusWatch(const BusWatch&) = delete;
  BusWatch& operator=(const BusWatch&) = delete;

  [[nodiscard]] std::vector<Request> requests() const;  // oldest first; any thread

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

// The process that owns a name on the bus, nothing when nobody does. Starts nothing.
[[nodiscard]] std::optional<pid_t> ownerOf(const std::string& busAddress, const std::string& name);

}  // namespace monitor::demo
