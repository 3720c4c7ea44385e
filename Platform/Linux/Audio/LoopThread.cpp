// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/LoopThread.h"

#include <pipewire/pipewire.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace monitor::platform {

namespace {

timespec timespecOf(double seconds) {
  constexpr double kNanoseconds = 1e9;
  timespec value{};
  // A timer that is set to zero is off.
  if (seconds <= 0.0) seconds = 1.0 / kNanoseconds;
  value.tv_sec = static_cast<time_t>(seconds);
  value.tv_nsec = static_cast<long>((seconds - std::floor(seconds)) * kNanoseconds);
  if (value.tv_sec == 0 && value.tv_nsec == 0) value.tv_nsec = 1;
  return value;
}

void initialiseLibrary() {
  static std::once_flag once;
  std::call_once(once, [] { pw_init(nullptr, nullptr); });
}

}  // namespace

LoopTimer::LoopTimer(pw_loop* loop, Handler handler)
    : loop_(loop), handler_(std::move(handler)), source_(pw_loop_add_timer(loop, &LoopTimer::expired, this)) {
  if (source_ == nullptr) throw std::runtime_error("The audio loop has no room for a timer.");
}

LoopTimer::~LoopTimer() {
  pw_loop_destroy_source(loop_, source_);
}

void LoopTimer::arm(double seconds) {
  timespec value = timespecOf(seconds);
  pw_loop_update_timer(loop_, source_, &value, nullptr, false);
}

void LoopTimer::disarm() {
  pw_loop_update_timer(loop_, source_, nullptr, nullptr, false);
}

void LoopTimer::expired(void* data, std::uint64_t) {
  static_cast<LoopTimer*>(data)->handler_();
}

std::unique_ptr<ProcessEndWatch> ProcessEndWatch::open(pw_loop* loop, std::int32_t pid, Handler handler) {
  const auto descriptor = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  if (descriptor < 0) return nullptr;
  return std::unique_ptr<ProcessEndWatch>{new ProcessEndWatch{loop, descriptor, std::move(handler)}};
}

ProcessEndWatch::ProcessEndWatch(pw_loop* loop, int descriptor, Handler handler)
    : loop_(loop),
      handler_(std::move(handler)),
      source_(pw_loop_add_io(loop, descriptor, SPA_IO_IN, true, &ProcessEndWatch::ended, this)) {
  if (source_ == nullptr) {
    ::close(descriptor);
    throw std::runtime_error("The audio loop cannot watch another process.");
  }
}

ProcessEndWatch::~ProcessEndWatch() {
  close();
}

void ProcessEndWatch::close() {
  if (source_ != nullptr) pw_loop_destroy_source(loop_, std::exchange(source_, nullptr));
}

void ProcessEndWatch::ended(void* data, int, std::uint32_t) {
  auto* watch = static_cast<ProcessEndWatch*>(data);
  // The descriptor stays readable for ever, and tells its hang-up whether that is asked for or not.
  watch->close();
  watch->handler_();
}

LoopThread::LoopThread() {
  initialiseLibrary();
  thread_ = pw_thread_loop_new("vesk-audio", nullptr);
  if (thread_ == nullptr) throw std::runtime_error("The audio loop cannot be created.");
  wake_ = pw_loop_add_event(loop(), &LoopThread::runTasks, this);
  if (wake_ == nullptr) {
    pw_thread_loop_destroy(thread_);
    throw std::runtime_error("The audio loop has no room for an event.");
  }
}

LoopThread::~LoopThread() {
  stop();
  pw_loop_destroy_source(loop(), wake_);
  pw_thread_loop_destroy(thread_);
}

void LoopThread::start() {
  if (pw_thread_loop_start(thread_) != 0) throw std::runtime_error("The audio thread cannot be started.");
  running_ = true;
}

void LoopThread::stop() {
  if (!std::exchange(running_, false)) return;
  pw_thread_loop_stop(thread_);
}

void LoopThread::post(Task task) {
  {
    const std::lock_guard lock{mutex_};
    tasks_.push_back(std::move(task));
    if (tasks_.size() > 1) return;
  }
  pw_loop_signal_event(loop(), wake_);
}

pw_loop* LoopThread::loop() const {
  return pw_thread_loop_get_loop(thread_);
}

void LoopThread::runTasks(void* data, std::uint64_t) {
  auto* self = static_cast<LoopThread*>(data);
  std::vector<Task> tasks;
  {
    const std::lock_guard lock{self->mutex_};
    tasks.swap(self->tasks_);
  }
  for (const auto& task : tasks) task();
}

}  // namespace monitor::platform
