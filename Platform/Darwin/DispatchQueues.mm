// SPDX-License-Identifier: MIT
#include "Platform/Darwin/DispatchQueues.h"

#include <cstdlib>
#include <utility>

#include "Platform/Darwin/DispatchQueueOf.h"
#include "Platform/Darwin/Text.h"

namespace monitor::platform {
namespace {

constexpr dispatch_qos_class_t qosClass(QualityOfService quality) {
  switch (quality) {
    case QualityOfService::UserInitiated: return QOS_CLASS_USER_INITIATED;
    case QualityOfService::Utility: return QOS_CLASS_UTILITY;
    case QualityOfService::Unspecified: break;
  }
  return QOS_CLASS_DEFAULT;
}

constexpr std::int64_t nanoseconds(double seconds) {
  return static_cast<std::int64_t>(seconds * static_cast<double>(NSEC_PER_SEC));
}

class DispatchTimer final : public RepeatingTimer {
 public:
  DispatchTimer(dispatch_queue_t queue, double firstAfter, double interval, SerialQueue::Task handler)
      : source_(dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, queue)) {
    dispatch_source_set_timer(source_, dispatch_time(DISPATCH_TIME_NOW, nanoseconds(firstAfter)),
                              static_cast<std::uint64_t>(nanoseconds(interval)), 0);
    dispatch_source_set_event_handler(source_, ^{
      handler();
    });
  }
  DispatchTimer(const DispatchTimer&) = delete;
  DispatchTimer& operator=(const DispatchTimer&) = delete;
  ~DispatchTimer() override {
    cancel();
    // A suspended source may not be released.
    if (!resumed_) dispatch_resume(source_);
  }

  void resume() override {
    if (std::exchange(resumed_, true)) return;
    dispatch_resume(source_);
  }
  void cancel() override { dispatch_source_cancel(source_); }

 private:
  dispatch_source_t source_;
  bool resumed_ = false;
};

class DispatchSerialQueue final : public SerialQueue {
 public:
  DispatchSerialQueue(dispatch_queue_t queue, std::string label) : queue_(queue), label_(std::move(label)) {
    dispatch_queue_set_specific(queue_, &kKey, this, nullptr);
  }
  DispatchSerialQueue(const DispatchSerialQueue&) = delete;
  DispatchSerialQueue& operator=(const DispatchSerialQueue&) = delete;
  ~DispatchSerialQueue() override { dispatch_queue_set_specific(queue_, &kKey, nullptr, nullptr); }

  [[nodiscard]] const std::string& label() const override { return label_; }
  void submit(Task task) override {
    dispatch_async(queue_, ^{
      task();
    });
  }
  void submitAfter(double seconds, Task task) override {
    // The queue object keeps itself alive for delayed work; what is not due when the last reference goes is dropped.
    const std::weak_ptr<int> alive = alive_;
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, nanoseconds(seconds)), queue_, ^{
      if (!alive.expired()) task();
    });
  }
  std::unique_ptr<RepeatingTimer> makeTimer(double firstAfter, double interval, Task handler) override {
    return std::make_unique<DispatchTimer>(queue_, firstAfter, interval, std::move(handler));
  }
  [[nodiscard]] bool isCurrent() const override { return dispatch_get_specific(&kKey) == this; }
  [[nodiscard]] dispatch_queue_t _Nonnull underlying() const { return queue_; }

 private:
  static inline const char kKey = 0;

  dispatch_queue_t queue_;
  std::string label_;
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};

class DispatchQueueFactory final : public SerialQueueFactory {
 public:
  std::shared_ptr<SerialQueue> makeSerialQueue(std::string label, QualityOfService quality) override {
    const dispatch_queue_attr_t attributes =
        dispatch_queue_attr_make_with_qos_class(DISPATCH_QUEUE_SERIAL, qosClass(quality), 0);
    const dispatch_queue_t queue = dispatch_queue_create(label.c_str(), attributes);
    return std::make_shared<DispatchSerialQueue>(queue, std::move(label));
  }
};

}  // namespace

std::shared_ptr<SerialQueueFactory> makeSerialQueueFactory() { return std::make_shared<DispatchQueueFactory>(); }

std::shared_ptr<SerialQueue> mainQueue() {
  static const auto queue = std::make_shared<DispatchSerialQueue>(dispatch_get_main_queue(), "main");
  return queue;
}

dispatch_queue_t dispatchQueueOf(const SerialQueue& queue) {
  const auto* own = dynamic_cast<const DispatchSerialQueue*>(&queue);
  if (own == nullptr) std::abort();
  return own->underlying();
}

}  // namespace monitor::platform
