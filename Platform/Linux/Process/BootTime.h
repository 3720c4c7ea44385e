// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace monitor::platform {

// When the machine was started, in whole seconds since 1970. The kernel takes it from the wall clock and says
// something else after each step of that clock, so it is read once and kept: with it, the start of a process,
// and so its identity, would change while it runs. Thread-safe.
class BootTime {
 public:
  explicit BootTime(std::string procRoot) : procRoot_(std::move(procRoot)) {}

  // Nothing until the kernel has once given it.
  [[nodiscard]] std::optional<std::uint64_t> seconds();

 private:
  std::string procRoot_;
  std::mutex mutex_;
  std::optional<std::uint64_t> seconds_;
};

}  // namespace monitor::platform
