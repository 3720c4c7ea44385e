// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

struct sd_event;
struct sd_event_source;

namespace monitor::platform {

// The event loop under every queue: tasks from any thread, in order of submission, beside whatever else is
// attached to the loop (a bus connection, signals). One thread runs it at a time; only that thread touches
// event().
//
// What is attached to event() gets its turn after every batch of tasks, so neither side can starve the other.
// A loop that is busy is not woken: it looks for tasks before it sleeps.
class EventLoop {
 public:
  using Task = std::function<void()>;
  struct Repetition;

  EventLoop();  // std::system_error when the kernel has no descriptors left
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Any thread. Tasks that arrive after the loop has ended are dropped.
  void submit(Task task);
  void submitAfter(double seconds, Task task);
  // The calls begin `firstAfter` seconds from now and keep to the grid of `interval` from there; a call that
  // was missed is merged into the next. The loop keeps no call of a repetition that was cancelled.
  [[nodiscard]] std::shared_ptr<Repetition> repeat(double firstAfter, double interval,
                                                   std::shared_ptr<Task> handler);
  void cancel(Repetition& repetition);

  // Any thread but the loop's own, for a loop to which nothing is attached: runs `task` here and now, as one of
  // the loop's, unless the loop has another task.
  [[nodiscard]] bool runIfIdle(const Task& task);

  // Runs the loop in the calling thread until quit(), or until the tasks submitted before finish() are done.
  void run();
  // Any thread. run() returns after the batch of tasks it is in; it may be called again.
  void quit();
  // Any thread. No delayed task or repetition is started any more.
  void finish();

  // Whether the caller is in run().
  [[nodiscard]] bool isCurrent() const;
  // The loop's thread only. REQUIRES: the signal is blocked in every thread of the process.
  void handleSignal(int signal, Task handler);
  // The loop's thread, or before the first run().
  [[nodiscard]] sd_event* event() const { return event_.get(); }

 private:
  // Due time in µs of the monotonic clock, and the order of submission among equal ones.
  using Key = std::pair<std::uint64_t, std::uint64_t>;
  struct Delayed {
    Task task;
    std::shared_ptr<Repetition> repetition;  // instead of a task
  };
  struct Unref {
    void operator()(sd_event* event) const;
    void operator()(sd_event_source* source) const;
  };
  struct Descriptor {
    Descriptor();
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int number;
  };
  using Source = std::unique_ptr<sd_event_source, Unref>;
  struct SignalHandler {
    Task handler;
    Source source;
  };

  static int onWake(sd_event_source* source, int descriptor, std::uint32_t events, void* self) noexcept;
  static int onTime(sd_event_source* source, std::uint64_t time, void* self) noexcept;
  void wake(std::unique_lock<std::mutex> lock);
  void add(std::uint64_t due, Delayed entry);
  [[nodiscard]] bool isOver();
  void turn();
  void drain() noexcept;
  void takeDueEntries();
  void armTimer(std::uint64_t due);

  std::unique_ptr<sd_event, Unref> event_;
  Descriptor wakeUp_;
  Source wakeSource_;
  Source timeSource_;
  std::vector<std::unique_ptr<SignalHandler>> signals_;
  std::vector<Task> batch_;     // the loop's thread only
  std::uint64_t armedFor_ = 0;  // the loop's thread only; 0: not armed

  std::mutex mutex_;  // guards what follows
  std::vector<Task> ready_;
  std::map<Key, Delayed> delayed_;
  std::uint64_t sequence_ = 0;
  bool awake_ = true;  // looks at the tasks again before it sleeps
  bool working_ = false;  // a task runs
  std::condition_variable workDone_;
  bool quitting_ = false;
  bool finishing_ = false;
  bool ended_ = false;
};

// A repeated call. Shared by whoever may cancel it and by the loop, which drops it with its last call.
struct EventLoop::Repetition {
  std::shared_ptr<Task> handler;
  std::uint64_t interval = 0;  // µs
  Key next;                    // guarded by the loop's mutex
  std::atomic<bool> cancelled = false;
};

}  // namespace monitor::platform
