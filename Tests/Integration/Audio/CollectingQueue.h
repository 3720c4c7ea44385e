// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "MonitorCore/Ports/SerialQueue.h"

namespace monitor::platform::test {

// Keeps what is submitted until the test runs it on its own thread.
class CollectingQueue final : public SerialQueue {
 public:
  [[nodiscard]] const std::string& label() const override { return label_; }
  void submit(Task task) override {
    {
      const std::lock_guard lock{mutex_};
      tasks_.push_back(std::move(task));
    }
    arrived_.notify_all();
  }
  void submitAfter(double, Task) override { throw std::logic_error("not used"); }
  std::unique_ptr<RepeatingTimer> makeTimer(double, double, Task) override {
    throw std::logic_error("not used");
  }
  [[nodiscard]] bool isCurrent() const override { return false; }

  // Runs what has been submitted.
  void run() {
    std::vector<Task> tasks;
    {
      const std::lock_guard lock{mutex_};
      tasks.swap(tasks_);
    }
    for (const auto& task : tasks) task();
  }
  // Waits until something has been submitted, and runs it. False at the deadline.
  bool runNext(std::chrono::milliseconds deadline) {
    {
      std::unique_lock lock{mutex_};
      if (!arrived_.wait_for(lock, deadline, [this] { return !tasks_.empty(); })) return false;
    }
    run();
    return true;
  }

 private:
  std::string label_ = "test";
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<Task> tasks_;
};

}  // namespace monitor::platform::test
