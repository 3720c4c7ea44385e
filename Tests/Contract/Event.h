// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace monitor::contract {

// Something that happened on a queue, which the test's thread waits for.
class Event {
 public:
  void set() {
    const std::lock_guard lock(mutex_);
    happened_ = true;
    changed_.notify_all();
  }
  [[nodiscard]] bool happened() const {
    const std::lock_guard lock(mutex_);
    return happened_;
  }
  [[nodiscard]] bool wait(std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [this] { return happened_; });
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool happened_ = false;
};

}  // namespace monitor::contract
