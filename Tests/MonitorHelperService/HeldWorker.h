// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "MonitorCore/Ports/SerialQueue.h"

namespace monitor::tests {

// A worker whose tasks take as long as the test wants: each is under way from its submission until the test
// ends it.
class HeldWorker final : public SerialQueue {
 public:
  [[nodiscard]] std::size_t underWay() const { return tasks_.size(); }
  void endOne() {
    if (tasks_.empty()) throw std::logic_error("no task is under way");
    const Task task = std::move(tasks_.front());
    tasks_.pop_front();
    task();
  }

  [[nodiscard]] const std::string& label() const override { return label_; }
  void submit(Task task) override { tasks_.push_back(std::move(task)); }
  void submitAfter(double /*seconds*/, Task /*task*/) override {
    throw std::logic_error("a worker is not a clock");
  }
  std::unique_ptr<RepeatingTimer> makeTimer(double /*firstAfter*/, double /*interval*/,
                                            Task /*handler*/) override {
    throw std::logic_error("a worker is not a clock");
  }
  [[nodiscard]] bool isCurrent() const override { return false; }

 private:
  std::string label_ = "worker";
  std::deque<Task> tasks_;
};

}  // namespace monitor::tests
