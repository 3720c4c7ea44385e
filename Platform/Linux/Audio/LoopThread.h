// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

struct pw_loop;
struct pw_thread_loop;
struct spa_source;

namespace monitor::platform {

// Calls back on the loop's thread once after a time. To be used and destroyed on that thread, or while the
// thread is stopped.
class LoopTimer {
 public:
  using Handler = std::function<void()>;
  LoopTimer(pw_loop* loop, Handler handler);
  ~LoopTimer();
  LoopTimer(const LoopTimer&) = delete;
  LoopTimer& operator=(const LoopTimer&) = delete;

  // Replaces an earlier time. Zero or less is as soon as possible.
  void arm(double seconds);
  void disarm();

 private:
  static void expired(void* data, std::uint64_t expirations);

  pw_loop* loop_;
  Handler handler_;
  spa_source* source_;
};

// Tells when a process ends. Same threads as LoopTimer.
class ProcessEndWatch {
 public:
  using Handler = std::function<void()>;
  // Nothing when the process has ended already, or the kernel cannot watch it.
  [[nodiscard]] static std::unique_ptr<ProcessEndWatch> open(pw_loop* loop, std::int32_t pid,
                                                             Handler handler);
  ~ProcessEndWatch();
  ProcessEndWatch(const ProcessEndWatch&) = delete;
  ProcessEndWatch& operator=(const ProcessEndWatch&) = delete;

 private:
  ProcessEndWatch(pw_loop* loop, int descriptor, Handler handler);
  void close();
  static void ended(void* data, int descriptor, std::uint32_t mask);

  pw_loop* loop_;
  Handler handler_;
  spa_source* source_;
};

// The one thread that everything of the audio server's client library is used on.
class LoopThread {
 public:
  using Task = std::function<void()>;

  LoopThread();
  ~LoopThread();
  LoopThread(const LoopThread&) = delete;
  LoopThread& operator=(const LoopThread&) = delete;

  void start();
  // Ends the thread; tasks not yet run are dropped. What lives on the loop may afterwards be destroyed from
  // here.
  void stop();
  // Runs the task on the thread, in the order of the calls. Any thread, the loop's own included: it then runs
  // once the current callback has returned.
  void post(Task task);
  [[nodiscard]] pw_loop* loop() const;

 private:
  static void runTasks(void* data, std::uint64_t count);

  pw_thread_loop* thread_;
  spa_source* wake_;
  bool running_ = false;
  std::mutex mutex_;
  std::vector<Task> tasks_;
};

}  // namespace monitor::platform
