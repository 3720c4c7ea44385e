// SPDX-License-Identifier: MIT
#include "MonitorHelperService/SharedCollection.h"

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

#include "MonitorHelperService/PowerRounding.h"

namespace monitor {

void SharedCollection::request(std::uint32_t user, std::weak_ptr<const void> caller, Reply reply) {
  ports_.queue->submit([weak = weak_from_this(), user, call = Call{std::move(caller), std::move(reply)}] {
    if (const auto self = weak.lock()) self->add(user, call);
  });
}

void SharedCollection::add(std::uint32_t user, Call call) {
  if (!ports_.mayCollect(user))
    return call.reply(std::nullopt, std::string(MonitorHelperProtocol::kRefusedText));
  forgetThoseGone();
  auto turn =
      std::find_if(waiting_.begin(), waiting_.end(), [user](const Turn& one) { return one.user == user; });
  if (turn == waiting_.end()) turn = waiting_.insert(waiting_.end(), Turn{user, {}});
  if (turn->calls.size() >= kMostWaiting) return call.reply(std::nullopt, std::string(kBusyText));
  turn->calls.push_back(std::move(call));
  runNext();
}

void SharedCollection::forgetThoseGone() {
  for (Turn& turn : waiting_)
    std::erase_if(turn.calls, [](const Call& call) { return call.caller.expired(); });
  std::erase_if(waiting_, [](const Turn& turn) { return turn.calls.empty(); });
}

void SharedCollection::runNext() {
  if (runs_ || timerSet_) return;
  forgetThoseGone();
  if (waiting_.empty()) return;
  const double wait = lastBegin_ ? *lastBegin_ + kSecondsBetweenRuns - ports_.clock.now() : 0.0;
  if (wait > 0.0) {
    timerSet_ = true;
    ports_.queue->submitAfter(wait, [weak = weak_from_this()] {
      const auto self = weak.lock();
      if (self == nullptr) return;
      self->timerSet_ = false;
      self->runNext();
    });
    return;
  }
  Turn turn = std::move(waiting_.front());
  waiting_.pop_front();
  for (Call& call : turn.calls) running_.push_back(std::move(call.reply));
  run(turn.user);
}

void SharedCollection::run(std::uint32_t user) {
  runs_ = true;
  lastBegin_ = ports_.clock.now();
  ports_.worker->submit([weak = weak_from_this(), queue = ports_.queue, collect = ports_.collect, user] {
    queue->submit([weak, outcome = outcomeOf(collect, user)] {
      if (const auto self = weak.lock()) self->finish(outcome);
    });
  });
}

void SharedCollection::finish(const Outcome& outcome) {
  runs_ = false;
  for (const Reply& reply : std::exchange(running_, {})) reply(outcome.data, outcome.message);
  runNext();
}

SharedCollection::Outcome SharedCollection::outcomeOf(const Collect& collect, std::uint32_t owner) {
  try {
    AdvancedSample sample = collect(owner);
    roundWatts(sample);
    return {encodeAdvancedSample(sample), std::nullopt};
  } catch (const std::exception& error) {
    return {std::nullopt, error.what()};
  }
}

}  // namespace monitor
