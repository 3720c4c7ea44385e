// SPDX-License-Identifier: MIT
#include "Platform/Linux/Base/EventLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <systemd/sd-event.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <system_error>
#include <utility>

namespace monitor::platform {
namespace {

// The loop whose run() the thread is in.
thread_local const EventLoop* currentLoop = nullptr;

constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;
// A century: what is later than that never comes, and sums of two such times stay far from the integer's end.
constexpr double kLatestSeconds = 3.2e9;

std::uint64_t monotonicMicroseconds() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<std::uint64_t>(time.tv_sec) * kMicrosecondsPerSecond +
         static_cast<std::uint64_t>(time.tv_nsec) / 1000;
}

// Rounded up: a delay may be longer than asked for, never shorter.
std::uint64_t microseconds(double seconds) {
  if (!(seconds > 0.0)) return 0;
  return static_cast<std::uint64_t>(std::ceil(std::fmin(seconds, kLatestSeconds) * 1e6));
}

void require(int result, const char* what) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), what);
}

class CurrentLoop {
 public:
  explicit CurrentLoop(const EventLoop* loop) : former_(std::exchange(currentLoop, loop)) {}
  ~CurrentLoop() { currentLoop = former_; }
  CurrentLoop(const CurrentLoop&) = delete;
  CurrentLoop& operator=(const CurrentLoop&) = delete;

 private:
  const EventLoop* former_;
};

}  // namespace

void EventLoop::Unref::operator()(sd_event* event) const {
  sd_event_unref(event);
}
void EventLoop::Unref::operator()(sd_event_source* source) const {
  sd_event_source_disable_unref(source);
}

EventLoop::Descriptor::Descriptor() : number(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  require(number < 0 ? -errno : 0, "eventfd");
}
EventLoop::Descriptor::~Descriptor() {
  close(number);
}

EventLoop::EventLoop() {
  sd_event* event = nullptr;
  require(sd_event_new(&event), "sd_event_new");
  event_.reset(event);
  sd_event_source* source = nullptr;
  // Edge-triggered: every write is a new edge, so the counter is never read.
  require(sd_event_add_io(event, &source, wakeUp_.number, EPOLLIN | EPOLLET, onWake, this),
          "sd_event_add_io");
  wakeSource_.reset(source);
  // The accuracy is 1 µs: 0 would stand for a quarter of a second.
  require(sd_event_add_time(event, &source, CLOCK_MONOTONIC, UINT64_MAX, 1, onTime, this),
          "sd_event_add_time");
  timeSource_.reset(source);
  require(sd_event_source_set_enabled(source, SD_EVENT_OFF), "sd_event_source_set_enabled");
}

EventLoop::~EventLoop() = default;

void EventLoop::submit(Task task) {
  std::unique_lock lock(mutex_);
  if (ended_) return;
  ready_.push_back(std::move(task));
  wake(std::move(lock));
}

void EventLoop::submitAfter(double seconds, Task task) {
  add(monotonicMicroseconds() + microseconds(seconds), Delayed{std::move(task), nullptr});
}

std::shared_ptr<EventLoop::Repetition> EventLoop::repeat(double firstAfter, double interval,
                                                         std::shared_ptr<Task> handler) {
  auto repetition = std::make_shared<Repetition>();
  repetition->handler = std::move(handler);
  repetition->interval = std::max<std::uint64_t>(microseconds(interval), 1);
  add(monotonicMicroseconds() + microseconds(firstAfter), Delayed{{}, repetition});
  return repetition;
}

void EventLoop::cancel(Repetition& repetition) {
  repetition.cancelled = true;
  decltype(delayed_)::node_type removed;  // destroyed after the lock: a handler may own anything
  const std::lock_guard lock(mutex_);
  const auto found = delayed_.find(repetition.next);
  if (found != delayed_.end() && found->second.repetition.get() == &repetition)
    removed = delayed_.extract(found);
}

void EventLoop::add(std::uint64_t due, Delayed entry) {
  std::unique_lock lock(mutex_);
  if (ended_) return;
  const Key key{due, sequence_++};
  if (entry.repetition != nullptr) entry.repetition->next = key;
  const auto place = delayed_.emplace(key, std::move(entry)).first;
  if (place == delayed_.begin()) wake(std::move(lock));
}

void EventLoop::wake(std::unique_lock<std::mutex> lock) {
  if (std::exchange(awake_, true)) return;
  lock.unlock();
  const std::uint64_t one = 1;
  // Fails only when the counter is full, and then the loop has not lacked for edges.
  [[maybe_unused]] const auto written = write(wakeUp_.number, &one, sizeof(one));
}

bool EventLoop::runIfIdle(const Task& task) {
  {
    const std::lock_guard lock(mutex_);
    if (working_ || !ready_.empty() || finishing_) return false;
    working_ = true;
  }
  {
    const CurrentLoop scope(this);
    task();
  }
  const std::lock_guard lock(mutex_);
  working_ = false;
  // Under the lock: the loop may be gone as soon as it is free.
  workDone_.notify_all();
  return true;
}

void EventLoop::run() {
  const CurrentLoop scope(this);
  while (!isOver()) {
    turn();
    drain();
  }
  // Delayed work is dropped here, on the loop's thread and outside the lock: what it owns may come back to
  // the loop.
  decltype(delayed_) dropped;
  const std::lock_guard lock(mutex_);
  if (ended_) dropped.swap(delayed_);
}

bool EventLoop::isOver() {
  const std::lock_guard lock(mutex_);
  if (finishing_ && ready_.empty()) ended_ = true;
  return std::exchange(quitting_, false) || ended_;
}

// One turn of what is attached. Sleeps only when there is no task; whatever comes from then on wakes it.
void EventLoop::turn() {
  std::uint64_t due = 0;
  bool sleeps = false;
  {
    const std::lock_guard lock(mutex_);
    if (!delayed_.empty() && !finishing_) due = delayed_.begin()->first.first;
    awake_ = !ready_.empty() || quitting_ || finishing_;
    sleeps = !awake_;
  }
  armTimer(due);
  const int result = sd_event_run(event_.get(), sleeps ? UINT64_MAX : 0);
  if (result < 0) {
    // Nothing that depends on the loop would ever happen again; ending the program gives everything back.
    std::fprintf(stderr, "event loop: %s\n", std::strerror(-result));
    std::terminate();
  }
}

void EventLoop::quit() {
  std::unique_lock lock(mutex_);
  quitting_ = true;
  wake(std::move(lock));
}

void EventLoop::finish() {
  std::unique_lock lock(mutex_);
  if (!finishing_) takeDueEntries();
  finishing_ = true;
  wake(std::move(lock));
}

bool EventLoop::isCurrent() const {
  return currentLoop == this;
}

void EventLoop::handleSignal(int signal, Task handler) {
  auto entry = std::make_unique<SignalHandler>();
  entry->handler = std::move(handler);
  sd_event_source* source = nullptr;
  const auto call = [](sd_event_source*, const signalfd_siginfo*, void* data) noexcept {
    static_cast<SignalHandler*>(data)->handler();
    return 0;
  };
  require(sd_event_add_signal(event_.get(), &source, signal, call, entry.get()), "sd_event_add_signal");
  entry->source.reset(source);
  signals_.push_back(std::move(entry));
}

// The turn is over, and that is all there was to do.
int EventLoop::onWake(sd_event_source*, int, std::uint32_t, void* /*self*/) noexcept {
  return 0;
}

int EventLoop::onTime(sd_event_source*, std::uint64_t, void* self) noexcept {
  static_cast<EventLoop*>(self)->armedFor_ = 0;  // one shot
  return 0;
}

void EventLoop::drain() noexcept {
  {
    std::unique_lock lock(mutex_);
    awake_ = true;
    if (!finishing_) takeDueEntries();
    if (ready_.empty()) return;
    workDone_.wait(lock, [this] { return !working_; });
    working_ = true;
    batch_.swap(ready_);
  }
  for (auto& task : batch_) {
    task();
    task = nullptr;  // what a task owns goes before the next one starts
  }
  batch_.clear();
  const std::lock_guard lock(mutex_);
  working_ = false;
}

void EventLoop::takeDueEntries() {
  if (delayed_.empty()) return;
  const std::uint64_t now = monotonicMicroseconds();
  while (!delayed_.empty() && delayed_.begin()->first.first <= now) {
    auto node = delayed_.extract(delayed_.begin());
    const auto repetition = node.mapped().repetition;
    if (repetition == nullptr) {
      ready_.push_back(std::move(node.mapped().task));
      continue;
    }
    const auto missed = (now - node.key().first) / repetition->interval;
    repetition->next = Key{node.key().first + (missed + 1) * repetition->interval, sequence_++};
    node.key() = repetition->next;
    delayed_.insert(std::move(node));
    ready_.push_back([repetition] {
      if (!repetition->cancelled) (*repetition->handler)();
    });
  }
}

void EventLoop::armTimer(std::uint64_t due) {
  if (due == armedFor_) return;
  armedFor_ = due;
  if (due != 0) sd_event_source_set_time(timeSource_.get(), due);
  sd_event_source_set_enabled(timeSource_.get(), due != 0 ? SD_EVENT_ONESHOT : SD_EVENT_OFF);
}

}  // namespace monitor::platform
