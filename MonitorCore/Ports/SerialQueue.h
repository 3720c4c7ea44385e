// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace monitor {

// A repeating timer on a queue. Created suspended; resume() once. After cancel() returns the handler is not started
// again when cancel() was called on the timer's queue; from elsewhere a call already under way may finish.
// Destruction cancels.
class RepeatingTimer {
 public:
  virtual ~RepeatingTimer() = default;
  virtual void resume() = 0;
  virtual void cancel() = 0;
};

// Runs tasks one at a time, in the order of submission. All members may be called from any thread. A task that
// throws ends the program: errors are handled inside the task.
//
// Lifetime: shared. When the last reference goes, tasks already submitted still run, delayed tasks that are not yet
// due are dropped, and the queue's thread ends by itself; the last reference may be dropped from one of the queue's
// own tasks.
class SerialQueue {
 public:
  using Task = std::function<void()>;

  virtual ~SerialQueue() = default;
  [[nodiscard]] virtual const std::string& label() const = 0;
  virtual void submit(Task task) = 0;
  // Runs `task` on the queue once `seconds` of the queue's monotonic time have passed.
  virtual void submitAfter(double seconds, Task task) = 0;
  // First call after `firstAfter` seconds, then every `interval` seconds; missed calls are merged into one.
  [[nodiscard]] virtual std::unique_ptr<RepeatingTimer> makeTimer(double firstAfter, double interval,
                                                                  Task handler) = 0;
  // Runs `task` in the caller's thread and as one of the queue's tasks, if the queue has nothing else to do;
  // false where it has, or where a queue never does so. What is submitted meanwhile waits: for tasks that take
  // no time.
  [[nodiscard]] virtual bool runIfIdle(const Task& /*task*/) { return false; }
  // Whether the caller runs on this queue.
  [[nodiscard]] virtual bool isCurrent() const = 0;
};

enum class QualityOfService : std::uint8_t { Unspecified, Utility, UserInitiated };

class SerialQueueFactory {
 public:
  virtual ~SerialQueueFactory() = default;
  [[nodiscard]] virtual std::shared_ptr<SerialQueue> makeSerialQueue(std::string label,
                                                                     QualityOfService quality) = 0;
};

}  // namespace monitor
