// SPDX-License-Identifier: MIT
#include "Tests/Fakes/VirtualTime.h"

#include <algorithm>
#include <utility>

namespace monitor::fakes {

class VirtualTimer final : public RepeatingTimer {
 public:
  VirtualTimer(std::shared_ptr<VirtualTime::State> state, const void* queue, double firstAfter,
               double interval, std::function<void()> handler)
      : state_(std::move(state)),
        queue_(queue),
        firstAfter_(firstAfter),
        interval_(interval),
        handler_(std::move(handler)) {}

  void resume() override { schedule(state_->now + firstAfter_); }
  void cancel() override { alive_.reset(); }

 private:
  void schedule(double due) {
    state_->add(due, {alive_, true, queue_,
                      [this, due] {
                        schedule(due + interval_);
                        // The handler may cancel or destroy this timer.
                        const auto handler = handler_;
                        handler();
                      },
                      true});
  }

  std::shared_ptr<VirtualTime::State> state_;
  const void* queue_;
  double firstAfter_;
  double interval_;
  std::function<void()> handler_;
  std::shared_ptr<void> alive_ = std::make_shared<int>();
};

class VirtualQueue final : public SerialQueue {
 public:
  VirtualQueue(std::shared_ptr<VirtualTime::State> state, std::string label)
      : state_(std::move(state)), label_(std::move(label)) {}

  [[nodiscard]] const std::string& label() const override { return label_; }
  void submit(Task task) override { state_->add(state_->now, {{}, false, this, std::move(task), false}); }
  void submitAfter(double seconds, Task task) override {
    state_->add(state_->now + seconds, {alive_, true, this, std::move(task), false});
  }
  std::unique_ptr<RepeatingTimer> makeTimer(double firstAfter, double interval, Task handler) override {
    return std::make_unique<VirtualTimer>(state_, this, firstAfter, interval, std::move(handler));
  }
  [[nodiscard]] bool runIfIdle(const Task& task) override {
    const bool busy = std::any_of(state_->pending.begin(), state_->pending.end(), [this](const auto& entry) {
      return entry.first.first <= state_->now && entry.second.queue == this;
    });
    if (!state_->inPlace || busy || isCurrent()) return false;
    const auto former = std::exchange(state_->currentQueue, this);
    task();
    state_->currentQueue = former;
    return true;
  }
  [[nodiscard]] bool isCurrent() const override { return state_->currentQueue == this; }

 private:
  std::shared_ptr<VirtualTime::State> state_;
  std::string label_;
  std::shared_ptr<void> alive_ = std::make_shared<int>();
};

VirtualTime::~VirtualTime() {
  // What a task holds may submit another one as it goes.
  while (!state_->pending.empty()) {
    const auto dropped = std::exchange(state_->pending, {});
  }
}

void VirtualTime::advance(double seconds) {
  const double end = state_->now + seconds;
  while (!state_->pending.empty() && state_->pending.begin()->first.first <= end) {
    auto entry = state_->pending.extract(state_->pending.begin());
    state_->now = std::max(state_->now, entry.key().first);
    Pending& pending = entry.mapped();
    const auto owner = pending.owner.lock();
    if (pending.owned && owner == nullptr) continue;
    state_->currentQueue = pending.queue;
    pending.task();
    // What a task holds is released on its queue, as real queues do.
    pending.task = nullptr;
    state_->currentQueue = nullptr;
  }
  state_->now = end;
}

std::size_t VirtualTime::pendingTasks() const {
  return static_cast<std::size_t>(std::count_if(state_->pending.begin(), state_->pending.end(),
                                                [](const auto& entry) { return !entry.second.timer; }));
}

std::shared_ptr<SerialQueue> VirtualTime::makeQueue(std::string label) {
  return std::make_shared<VirtualQueue>(state_, std::move(label));
}

}  // namespace monitor::fakes
