// SPDX-License-Identifier: MIT
#include "Tools/vesk/Agent/GainKeeper.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace monitor::vesk {
namespace {

constexpr const char* kServiceEnded = "The audio service ended. Normal playback has been restored.";
constexpr const char* kTurnedOff = "App Volume was turned off meanwhile.";
constexpr const char* kUnreadableList = "The audio service sent a list that cannot be read.";
// The service's own words for a program that is not there (any more).
constexpr const char* kNotListed = "This audio app changed or closed. Refresh the app list.";

const AudioApplication* listedUnder(const std::vector<AudioApplication>& list, const std::string& id) {
  const auto found = std::find_if(list.begin(), list.end(), [&](const auto& app) { return app.id == id; });
  return found == list.end() ? nullptr : &*found;
}

}  // namespace

GainKeeper::GainKeeper(std::shared_ptr<AudioClient> client, Surroundings surroundings)
    : client_(std::move(client)), surroundings_(std::move(surroundings)), journal_(surroundings_.wallClock) {
  client_->onDisconnect = [this] { serviceLost(); };
  journal_.onTell = [this](const std::string& text) {
    if (onEvent) onEvent(text);
  };
}

GainKeeper::~GainKeeper() {
  client_->onDisconnect = nullptr;
}

// Requests

void GainKeeper::list(std::function<void(ListAnswer)> reply) {
  Operation operation;
  operation.kind = Kind::List;
  operation.listReply = std::move(reply);
  enqueue(std::move(operation));
}

void GainKeeper::setGain(std::string id, double gain, std::function<void(Answer)> reply) {
  if (!(gain >= 0.0 && gain <= 1.0)) {
    reply({"A gain is a number from 0 to 1.", {}});
    return;
  }
  Operation operation;
  operation.kind = Kind::Set;
  operation.id = std::move(id);
  operation.gain = gain;
  operation.reply = std::move(reply);
  enqueue(std::move(operation));
}

void GainKeeper::release(std::string id, std::function<void(Answer)> reply) {
  const bool wasHeld = held_.release(id);
  if (wasHeld && held_.empty() && !current_ && waiting_.empty()) {
    // The last one: ending everything needs no answer from a service that may hang.
    stopAll();
    reply({});
    return;
  }
  Operation operation;
  operation.kind = Kind::Release;
  operation.id = std::move(id);
  operation.reply = std::move(reply);
  enqueue(std::move(operation));
}

void GainKeeper::stopAll() {
  held_.clear();
  client_->stop();
  std::deque<Step> ended = std::exchange(waiting_, {});
  if (current_) ended.push_front(std::exchange(current_, nullptr));
  for (const Step& step : ended) {
    if (step->kind == Kind::List) {
      // Asked anew: a list is as good after the stop. A copy, so that late answers to the old request find
      // nothing.
      waiting_.push_back(std::make_shared<Operation>(*step));
    } else if (step->reply) {
      step->reply(step->kind == Kind::Release ? Answer{} : Answer{kTurnedOff, {}});
    }
  }
  updateTimer();
  touch();
  startNext();
}

GainKeeper::Status GainKeeper::status() const {
  Status status;
  status.held = held_.all();
  if (lastAnswer_) status.secondsSinceAnswer = surroundings_.clock.now() - *lastAnswer_;
  status.lastError = journal_.lastError();
  status.lastCause = journal_.lastCause();
  status.events = journal_.events();
  return status;
}

bool GainKeeper::isIdle() const {
  return held_.empty() && !current_ && waiting_.empty();
}

void GainKeeper::touch() {
  const std::uint64_t use = ++uses_;
  surroundings_.queue->submitAfter(surroundings_.idleSeconds, guarded([this, use] {
                                     if (use == uses_ && isIdle() && onIdle) onIdle();
                                   }));
}

// One operation after another

void GainKeeper::enqueue(Operation operation) {
  waiting_.push_back(std::make_shared<Operation>(std::move(operation)));
  startNext();
}

void GainKeeper::startNext() {
  if (current_ || waiting_.empty()) return;
  current_ = waiting_.front();
  waiting_.pop_front();
  // Not at once: a client that has just reported a time-out is about to stop, which would silence a request
  // made from within the report.
  surroundings_.queue->submit(guarded([this, step = current_] {
    if (step == current_) begin(step);
  }));
}

void GainKeeper::begin(const Step& step) {
  if (step->kind == Kind::Restore) {
    held_.beginRestore(step->id);
    send(step, step->app);
    return;
  }
  client_->applications(guarded([this, step](auto list, auto message) {
    if (step == current_) listArrived(step, std::move(list), message.value_or(std::string()));
  }));
}

void GainKeeper::listArrived(const Step& step, std::optional<std::vector<AudioApplication>> list,
                             std::string message) {
  if (!list) {
    failWithCause(step, message.empty() ? kUnreadableList : message);
    return;
  }
  takeList(*list, message);
  proceed(step, *list, message);
}

void GainKeeper::proceed(const Step& step, const std::vector<AudioApplication>& list,
                         const std::string& message) {
  if (step->kind == Kind::Poll || step->kind == Kind::List) {
    if (step->listReply) step->listReply({list, message, {}});
    succeed(step);
    return;
  }
  if (const AudioApplication* app = listedUnder(list, step->id)) {
    send(step, *app);
  } else if (step->kind == Kind::Release) {
    succeed(step);
  } else if (step->gain < 1.0 && held_.changeWaiting(step->id, step->gain)) {
    succeed(step);
  } else if (step->gain == 1.0 && held_.release(step->id)) {
    succeed(step);
  } else {
    fail(step, kNotListed, {});
  }
}

void GainKeeper::send(const Step& step, const AudioApplication& app) {
  client_->setGain(step->gain, app, guarded([this, step, app](const auto& error) {
                     if (step == current_) gainAnswered(step, app, error);
                   }));
}

void GainKeeper::gainAnswered(const Step& step, const AudioApplication& app,
                              const std::optional<std::string>& error) {
  if (error) {
    gainRefused(step, *error);
  } else {
    gainSet(step, app);
  }
}

void GainKeeper::gainSet(const Step& step, const AudioApplication& app) {
  const double now = surroundings_.clock.now();
  lastAnswer_ = now;
  if (step->kind == Kind::Restore) {
    journal_.tell(held_.restored(step->id, now).value_or(std::string()));
  } else if (step->kind == Kind::Set && step->gain < 1.0) {
    surroundings_.presence.saw(app);
    held_.hold(app, step->gain, now);
  } else {
    held_.release(step->id);
  }
  succeed(step);
}

void GainKeeper::gainRefused(const Step& step, const std::string& error) {
  if (step->kind == Kind::Restore) {
    const double now = surroundings_.clock.now();
    journal_.tell(held_.restoreFailed(step->id, error, now).value_or(std::string()));
  }
  if (error == AudioClient::kGainTimeoutText) {
    // The client stops everything now, and the user is told so: nothing may come back by itself.
    if (step->kind == Kind::Set) held_.clear();
    fail(step, error, {});
    return;
  }
  failWithCause(step, error);
}

void GainKeeper::failWithCause(const Step& step, const std::string& error) {
  if (!surroundings_.askCause || error == AudioClient::kListTimeoutText) {
    fail(step, error, {});
    return;
  }
  const auto conclude = guarded([this, step, error](const std::string& cause) {
    if (step == current_) fail(step, error, cause);
  });
  surroundings_.queue->submitAfter(kCauseSeconds, [conclude] { conclude(std::string()); });
  surroundings_.askCause(conclude);
}

void GainKeeper::fail(const Step& step, const std::string& error, const std::string& cause) {
  journal_.noteFailure(error, cause);
  if (step->listReply) step->listReply({std::nullopt, error, cause});
  if (step->reply) step->reply({error, cause});
  finish(step);
}

void GainKeeper::succeed(const Step& step) {
  journal_.noteSuccess();
  if (step->reply) step->reply({});
  finish(step);
}

void GainKeeper::finish(const Step& step) {
  if (step == current_) current_.reset();
  if (const auto retry = held_.nextRetry()) pollAt(*retry);
  updateTimer();
  if (isIdle()) touch();
  startNext();
}

// The service's word against what is held

void GainKeeper::takeList(const std::vector<AudioApplication>& list, const std::string& message) {
  const double now = surroundings_.clock.now();
  lastAnswer_ = now;
  const std::string reason = lossReason(message);
  for (const std::string& sentence : held_.reconcile(list, surroundings_.presence, reason, now)) {
    journal_.tell(sentence);
  }
  standstill_ = 0.0;
  repair(list);
}

std::string GainKeeper::lossReason(const std::string& message) {
  const bool isNew = journal_.noteStandingMessage(message);
  if (standstill_ > 0.0) return fmt::format("the agent stood still for {:.0f} s", standstill_);
  if (isNew) return message;
  return "the audio service no longer had it";
}

void GainKeeper::repair(const std::vector<AudioApplication>& list) {
  for (const HeldGain& held : held_.due(surroundings_.clock.now())) {
    if (isQueued(Kind::Restore, held.app.id) || isQueued(Kind::Set, held.app.id)) continue;
    Operation operation;
    operation.kind = Kind::Restore;
    operation.id = held.app.id;
    operation.gain = held.gain;
    operation.app = held.app;
    enqueue(std::move(operation));
  }
  for (const AudioApplication& app : list) {
    const bool wanted = app.gain == 1.0 || held_.find(app.id) != nullptr;
    if (wanted || isQueued(Kind::Release, app.id) || isQueued(Kind::Set, app.id)) continue;
    Operation operation;
    operation.kind = Kind::Release;
    operation.id = app.id;
    enqueue(std::move(operation));
  }
}

bool GainKeeper::isQueued(Kind kind, const std::string& id) const {
  const auto is = [&](const Step& step) { return step->kind == kind && step->id == id; };
  return (current_ && is(current_)) || std::any_of(waiting_.begin(), waiting_.end(), is);
}

void GainKeeper::serviceLost() {
  const double now = surroundings_.clock.now();
  if (!held_.empty()) journal_.tell(kServiceEnded);
  held_.loseAll("the audio service ended", now);
  if (const Step step = current_) {
    if (step->kind == Kind::Restore) held_.restoreFailed(step->id, "the audio service ended", now);
    fail(step, kServiceEnded, {});
  } else if (const auto retry = held_.nextRetry()) {
    pollAt(*retry);
  }
}

void GainKeeper::tick() {
  const double now = surroundings_.clock.now();
  if (now - lastTick_ > kStandstillSeconds) standstill_ = now - lastTick_;
  lastTick_ = now;
  poll();
}

void GainKeeper::poll() {
  const auto lists = [](const Step& step) { return step->kind != Kind::Restore; };
  // Every operation but a restore begins with a list.
  if ((current_ && lists(current_)) || std::any_of(waiting_.begin(), waiting_.end(), lists)) return;
  if (!held_.empty()) enqueue(Operation{});
}

void GainKeeper::pollAt(double time) {
  // What is due already waits for the next list, and the timer asks for one at least every two seconds.
  const double delay = time - surroundings_.clock.now();
  if (delay > 0.0 && delay < kPollSeconds)
    surroundings_.queue->submitAfter(delay, guarded([this] { poll(); }));
}

void GainKeeper::updateTimer() {
  if (held_.empty()) {
    timer_.reset();
  } else if (!timer_) {
    lastTick_ = surroundings_.clock.now();
    timer_ = surroundings_.queue->makeTimer(kPollSeconds, kPollSeconds, [this] { tick(); });
    timer_->resume();
  }
}

}  // namespace monitor::vesk
