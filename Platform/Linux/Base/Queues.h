// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "MonitorCore/Ports/SerialQueue.h"

namespace monitor::platform {

class EventLoop;

// Queues with one thread each. The thread carries the end of the label that fits into the kernel's 15
// characters, cut at a dot ("app.vesk.monitor.audio" → "monitor.audio"), blocks every signal, and is a little
// less urgent with QualityOfService::Utility. makeSerialQueue() throws std::system_error when the kernel
// gives no thread or descriptor.
[[nodiscard]] std::unique_ptr<SerialQueueFactory> makeSerialQueueFactory();

// Threads of such queues that have not ended, of the whole process. Any thread.
[[nodiscard]] std::size_t liveSerialQueues();
// Waits until at most `count` are left. False when that takes longer than `seconds`.
[[nodiscard]] bool waitForSerialQueues(std::size_t count, double seconds);

// A queue that the caller's own thread runs: the main queue of a program. Unlike the others it runs nothing
// after its last reference has gone. Signals are blocked when they are asked for, so handleSignal() belongs
// before the first thread.
class MainQueue final : public SerialQueue {
 public:
  MainQueue();
  ~MainQueue() override;

  // Runs tasks in the calling thread until quit(). May be called again.
  void run();
  // Any thread. run() returns soon; what it has not got to stays for the next run().
  void quit();
  // Calls `handler` on the queue for every arrival of `signal`, which has no other effect any more. Before
  // run(), or on the queue.
  void handleSignal(int signal, Task handler);
  // For what lives on the same loop, like a bus connection.
  [[nodiscard]] const std::shared_ptr<EventLoop>& loop() const { return loop_; }

  [[nodiscard]] const std::string& label() const override { return label_; }
  void submit(Task task) override;
  void submitAfter(double seconds, Task task) override;
  [[nodiscard]] std::unique_ptr<RepeatingTimer> makeTimer(double firstAfter, double interval,
                                                          Task handler) override;
  [[nodiscard]] bool isCurrent() const override;

 private:
  std::string label_ = "main";
  std::shared_ptr<EventLoop> loop_;
};

// A thread of its own that runs an event loop, for what has to live on one: a bus connection and its queue.
// Destruction finishes the loop without waiting for it.
class EventLoopThread {
 public:
  EventLoopThread(const std::string& label, QualityOfService quality);
  ~EventLoopThread();
  EventLoopThread(const EventLoopThread&) = delete;
  EventLoopThread& operator=(const EventLoopThread&) = delete;
  [[nodiscard]] const std::shared_ptr<EventLoop>& loop() const { return loop_; }

 private:
  std::shared_ptr<EventLoop> loop_;
};

}  // namespace monitor::platform
