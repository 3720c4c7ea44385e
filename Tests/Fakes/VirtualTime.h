// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "MonitorCore/Ports/SerialQueue.h"
#include "MonitorCore/Ports/Time.h"

namespace monitor::fakes {

// Time and every queue of a test, on one thread. Nothing runs until the test says run() or advance(); tasks
// then run in the order of their due times, and in the order of submission where those are equal.
class VirtualTime {
 public:
  VirtualTime() = default;
  // Tasks that were never run are thrown away, with whatever they hold.
  ~VirtualTime();
  VirtualTime(const VirtualTime&) = delete;
  VirtualTime& operator=(const VirtualTime&) = delete;

  [[nodiscard]] double now() const { return state_->now; }
  // Runs everything that is due now, including what those tasks submit.
  void run() { advance(0.0); }
  // Moves time forward by `seconds`, stopping at every due time on the way.
  void advance(double seconds);
  // Tasks submitted and not yet run, timers not counted.
  [[nodiscard]] std::size_t pendingTasks() const;
  [[nodiscard]] std::shared_ptr<SerialQueue> makeQueue(std::string label = "test");
  // From now on idle queues run tasks in place.
  void letIdleQueuesRunInPlace() { state_->inPlace = true; }

 private:
  friend class VirtualQueue;
  friend class VirtualTimer;
  using Task = std::function<void()>;
  struct Pending {
    std::weak_ptr<void> owner;  // delayed work and timers die with their queue or timer
    bool owned = false;
    const void* queue = nullptr;
    Task task;
    bool timer = false;
  };
  struct State {
    double now = 0.0;
    std::uint64_t sequence = 0;
    bool inPlace = false;
    const void* currentQueue = nullptr;
    std::map<std::pair<double, std::uint64_t>, Pending> pending;
    void add(double due, Pending entry) { pending.emplace(std::pair{due, sequence++}, std::move(entry)); }
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

class FakeClock final : public Clock {
 public:
  explicit FakeClock(const VirtualTime& time) : time_(time) {}
  [[nodiscard]] double now() const override { return time_.now() + offset; }
  double offset = 1000.0;  // monotonic clocks rarely start at zero

 private:
  const VirtualTime& time_;
};

class FakeWallClock final : public WallClock {
 public:
  explicit FakeWallClock(const VirtualTime& time) : time_(time) {}
  [[nodiscard]] Date now() const override { return base.addingSeconds(time_.now()); }
  Date base = Date::since1970(1'731'700'800.0);

 private:
  const VirtualTime& time_;
};

class FakeQueueFactory final : public SerialQueueFactory {
 public:
  explicit FakeQueueFactory(VirtualTime& time) : time_(time) {}
  std::shared_ptr<SerialQueue> makeSerialQueue(std::string label, QualityOfService quality) override {
    made.emplace_back(label, quality);
    return time_.makeQueue(std::move(label));
  }
  std::vector<std::pair<std::string, QualityOfService>> made;

 private:
  VirtualTime& time_;
};

}  // namespace monitor::fakes
