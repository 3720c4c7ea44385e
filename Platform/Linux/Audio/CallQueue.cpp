// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/CallQueue.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace monitor::platform {

namespace {

// The loop gives up this long before its caller does, so that the caller normally hears what became of the
// call.
constexpr std::chrono::milliseconds kMargin{100};

AudioOutcome timedOut() {
  return AudioOutcome::failure(audiostatus::kTimedOut, "The audio server did not answer in time.");
}

}  // namespace

struct CallQueue::Call {
  Operation operation;
  Clock::time_point deadline;  // of the loop

  std::mutex mutex;
  std::condition_variable answered;
  std::optional<AudioOutcome> outcome;
  bool abandoned = false;  // the caller has returned
};

CallQueue::CallQueue(LoopThread& thread) : thread_(thread), timer_(thread.loop(), [this] { poll(); }) {}

AudioOutcome CallQueue::run(Operation operation, Clock::time_point deadline) {
  auto call = std::make_shared<Call>();
  call->operation = std::move(operation);
  call->deadline = deadline - kMargin;
  thread_.post([this, call] { begin(call); });
  std::unique_lock lock{call->mutex};
  call->answered.wait_until(lock, deadline, [&] { return call->outcome.has_value(); });
  if (call->outcome) return *call->outcome;
  call->abandoned = true;
  return timedOut();
}

void CallQueue::begin(const std::shared_ptr<Call>& call) {
  {
    const std::lock_guard lock{call->mutex};
    if (call->abandoned && !call->operation.evenLate) return;
  }
  if (auto outcome = call->operation.begin(); !outcome.ok() || !call->operation.poll) {
    // A begin() that fails has left nothing behind; one that succeeds may have to be undone.
    if (!outcome.ok()) call->operation.undo = {};
    answer(*call, std::move(outcome));
    return;
  }
  if (advance(*call, Clock::now())) return;
  calls_.push_back(call);
  armTimer();
}

bool CallQueue::advance(Call& call, Clock::time_point now) {
  auto outcome = call.operation.poll();
  if (!outcome && now < call.deadline) return false;
  answer(call, outcome ? std::move(*outcome) : timedOut());
  return true;
}

void CallQueue::answer(Call& call, AudioOutcome outcome) {
  if (!outcome.ok() && call.operation.undo) std::exchange(call.operation.undo, {})();
  bool unheard = false;
  {
    const std::lock_guard lock{call.mutex};
    unheard = call.abandoned && outcome.ok();
    call.outcome = std::move(outcome);
  }
  call.answered.notify_all();
  if (unheard && call.operation.undo) call.operation.undo();
}

void CallQueue::poll() {
  const auto now = Clock::now();
  // An answer may bring new calls about, and these may not disturb the walk.
  auto calls = std::exchange(calls_, {});
  std::erase_if(calls, [&](const auto& call) { return advance(*call, now); });
  calls_.insert(calls_.begin(), calls.begin(), calls.end());
  armTimer();
}

void CallQueue::failAll(const AudioOutcome& outcome) {
  for (const auto& call : std::exchange(calls_, {})) {
    call->operation.undo = {};
    answer(*call, outcome);
  }
  armTimer();
}

void CallQueue::armTimer() {
  if (calls_.empty()) return timer_.disarm();
  const auto first = *std::min_element(calls_.begin(), calls_.end(), [](const auto& left, const auto& right) {
    return left->deadline < right->deadline;
  });
  timer_.arm(std::chrono::duration<double>{first->deadline - Clock::now()}.count());
}

}  // namespace monitor::platform
