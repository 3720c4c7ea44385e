// SPDX-License-Identifier: MIT
#include "Platform/Linux/Base/Queues.h"

#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

#include "Platform/Linux/Base/EventLoop.h"

namespace monitor::platform {
namespace {

// How much less urgent a utility queue is, on the scale of nice(1).
constexpr int kUtilityNice = 5;
constexpr std::size_t kThreadNameLength = 15;

struct LiveQueues {
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t count = 0;

  void add() {
    const std::lock_guard lock(mutex);
    ++count;
  }
  void remove() {
    const std::lock_guard lock(mutex);
    --count;
    changed.notify_all();
  }
};

// Never destroyed: queue threads end when they like, the exit of the program included.
LiveQueues& liveQueues() {
  static auto* queues = new LiveQueues;
  return *queues;
}

std::string threadName(std::string_view label) {
  while (label.size() > kThreadNameLength) {
    const auto dot = label.find('.');
    if (dot == std::string_view::npos) return std::string(label.substr(0, kThreadNameLength));
    label.remove_prefix(dot + 1);
  }
  return std::string(label);
}

// Blocks every signal in this thread, for the thread that is started meanwhile: signals are the main
// thread's.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &former_);
  }
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t former_{};
};

void runQueueThread(std::shared_ptr<EventLoop> loop, const std::string& name,
                    QualityOfService quality) noexcept {
  pthread_setname_np(pthread_self(), name.c_str());
  if (quality == QualityOfService::Utility) {
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kUtilityNice);
  }
  loop->run();
  loop.reset();
  liveQueues().remove();
}

class LoopTimer final : public RepeatingTimer {
 public:
  LoopTimer(std::shared_ptr<EventLoop> loop, double firstAfter, double interval, SerialQueue::Task handler)
      : loop_(std::move(loop)),
        firstAfter_(firstAfter),
        interval_(interval),
        handler_(std::make_shared<SerialQueue::Task>(std::move(handler))) {}
  ~LoopTimer() override { cancel(); }
  LoopTimer(const LoopTimer&) = delete;
  LoopTimer& operator=(const LoopTimer&) = delete;

  void resume() override {
    if (handler_ != nullptr) repetition_ = loop_->repeat(firstAfter_, interval_, std::move(handler_));
  }
  void cancel() override {
    handler_ = nullptr;
    if (repetition_ != nullptr) loop_->cancel(*repetition_);
  }

 private:
  std::shared_ptr<EventLoop> loop_;
  double firstAfter_;
  double interval_;
  std::shared_ptr<SerialQueue::Task> handler_;  // until resume()
  std::shared_ptr<EventLoop::Repetition> repetition_;
};

class ThreadQueue final : public SerialQueue {
 public:
  ThreadQueue(std::string label, QualityOfService quality)
      : label_(std::move(label)), thread_(label_, quality) {}

  [[nodiscard]] const std::string& label() const override { return label_; }
  void submit(Task task) override { thread_.loop()->submit(std::move(task)); }
  void submitAfter(double seconds, Task task) override {
    thread_.loop()->submitAfter(seconds, std::move(task));
  }
  [[nodiscard]] std::unique_ptr<RepeatingTimer> makeTimer(double firstAfter, double interval,
                                                          Task handler) override {
    return std::make_unique<LoopTimer>(thread_.loop(), firstAfter, interval, std::move(handler));
  }
  [[nodiscard]] bool runIfIdle(const Task& task) override { return thread_.loop()->runIfIdle(task); }
  [[nodiscard]] bool isCurrent() const override { return thread_.loop()->isCurrent(); }

 private:
  std::string label_;
  EventLoopThread thread_;
};

class ThreadQueueFactory final : public SerialQueueFactory {
 public:
  std::shared_ptr<SerialQueue> makeSerialQueue(std::string label, QualityOfService quality) override {
    return std::make_shared<ThreadQueue>(std::move(label), quality);
  }
};

}  // namespace

std::unique_ptr<SerialQueueFactory> makeSerialQueueFactory() {
  return std::make_unique<ThreadQueueFactory>();
}

std::size_t liveSerialQueues() {
  const std::lock_guard lock(liveQueues().mutex);
  return liveQueues().count;
}

bool waitForSerialQueues(std::size_t count, double seconds) {
  std::unique_lock lock(liveQueues().mutex);
  return liveQueues().changed.wait_for(lock, std::chrono::duration<double>(seconds),
                                       [&] { return liveQueues().count <= count; });
}

EventLoopThread::EventLoopThread(const std::string& label, QualityOfService quality)
    : loop_(std::make_shared<EventLoop>()) {
  const BlockedSignals blocked;
  // Counted before the thread exists, so that the count never lags behind the caller.
  liveQueues().add();
  try {
    std::thread(runQueueThread, loop_, threadName(label), quality).detach();
  } catch (...) {
    liveQueues().remove();
    throw;
  }
}

EventLoopThread::~EventLoopThread() {
  loop_->finish();
}

MainQueue::MainQueue() : loop_(std::make_shared<EventLoop>()) {}
MainQueue::~MainQueue() = default;

void MainQueue::run() {
  loop_->run();
}
void MainQueue::quit() {
  loop_->quit();
}

void MainQueue::handleSignal(int signal, Task handler) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  loop_->handleSignal(signal, std::move(handler));
}

void MainQueue::submit(Task task) {
  loop_->submit(std::move(task));
}
void MainQueue::submitAfter(double seconds, Task task) {
  loop_->submitAfter(seconds, std::move(task));
}
std::unique_ptr<RepeatingTimer> MainQueue::makeTimer(double firstAfter, double interval, Task handler) {
  return std::make_unique<LoopTimer>(loop_, firstAfter, interval, std::move(handler));
}
bool MainQueue::isCurrent() const {
  return loop_->isCurrent();
}

}  // namespace monitor::platform
