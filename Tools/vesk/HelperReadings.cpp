// SPDX-License-Identifier: MIT
#include "Tools/vesk/HelperReadings.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>
#include <variant>

#include "MonitorMac/AdvancedClient.h"
#include "MonitorMac/OneShot.h"

namespace monitor::vesk {
namespace {

// What one request has found out.
struct Answer {
  std::optional<DaemonStatus> daemon;
  std::optional<AdvancedSample> sample;
  std::string problem;  // why there is no sample
};
using AnswerShot = OneShot<const Answer&>;
using ShotPointer = std::shared_ptr<AnswerShot>;

const char* problemOf(DaemonStatus status) {
  switch (status) {
    case DaemonStatus::RequiresApproval:
      return "The optional helper needs an administrator's approval.";
    case DaemonStatus::NotFound:
      return "The optional helper is not installed.";
    case DaemonStatus::NotRegistered:
    case DaemonStatus::Enabled:
      break;
  }
  return "The optional helper is not enabled.";
}

// What a bus says of its policy is for its administrator.
Answer answerOf(const AdvancedClient::Result& result, const HelperPorts& ports) {
  if (const auto* sample = std::get_if<AdvancedSample>(&result)) return {DaemonStatus::Enabled, *sample, ""};
  const auto& error = std::get<MonitorError>(result);
  return {DaemonStatus::Enabled, std::nullopt,
          ports.meansRefused(error) ? std::string(MonitorHelperProtocol::kRefusedText) : error.what()};
}

}  // namespace

// What outlives the owner until its last answer has come.
class HelperReadings::Asker : public std::enable_shared_from_this<Asker> {
 public:
  explicit Asker(HelperPorts ports) : ports_(std::move(ports)) {}

  void request() {
    {
      const std::lock_guard lock(mutex_);
      if (asking_ || resting_) return;
      asking_ = true;
    }
    ports_.queue->submit([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->begin();
    });
  }
  bool settle(double seconds) {
    std::unique_lock lock(mutex_);
    return settled_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return !asking_; });
  }
  // The client is released on its queue, where its handlers run.
  void end() {
    ports_.queue->submit([self = shared_from_this()] { self->client_.reset(); });
  }
  // A copy of one of the fields below.
  template <class Field>
  [[nodiscard]] Field read(Field Asker::*field) const {
    const std::lock_guard lock(mutex_);
    return this->*field;
  }

  std::optional<AdvancedSample> latest;  // these three by read() alone
  std::optional<DaemonStatus> daemon;
  std::string problem;

 private:
  void begin() {
    if (!client_) client_ = AdvancedClient::make(*ports_.connections, *ports_.registry, ports_.queue);
    const auto shot = std::make_shared<AnswerShot>([weak = weak_from_this()](const Answer& answer) {
      if (const auto self = weak.lock()) self->deliver(answer);
    });
    // A helper that has just answered may be asked: to look that up each second would cost more than asking.
    if (answered_) return ask(DaemonStatus::Enabled, shot);
    findStatus(shot);
  }
  void findStatus(const ShotPointer& shot) {
    const auto known = std::make_shared<bool>(false);
    ports_.queue->submitAfter(kStatusSeconds, [shot, known] {
      if (!*known)
        shot->complete(
            {std::nullopt, std::nullopt, "The system does not say whether the helper is enabled."});
    });
    client_->refreshStatus([weak = weak_from_this(), shot, known](DaemonStatus status) {
      *known = true;
      if (const auto self = weak.lock()) self->ask(status, shot);
    });
  }
  void ask(DaemonStatus status, const ShotPointer& shot) {
    if (status != DaemonStatus::Enabled || !client_) {
      shot->complete({status, std::nullopt, problemOf(status)});
      return;
    }
    client_->sample([shot, ports = ports_](const AdvancedClient::Result& result) {
      shot->complete(answerOf(result, ports));
    });
  }
  void deliver(const Answer& answer) {
    answered_ = answer.sample.has_value();
    {
      const std::lock_guard lock(mutex_);
      asking_ = false;
      resting_ = !answer.sample;
      daemon = answer.daemon;
      problem = answer.problem;
      if (answer.sample) latest = answer.sample;
    }
    settled_.notify_all();
    if (answer.sample) return;
    ports_.queue->submitAfter(kRetrySeconds, [weak = weak_from_this()] {
      const auto self = weak.lock();
      if (self == nullptr) return;
      const std::lock_guard lock(self->mutex_);
      self->resting_ = false;
    });
  }

  const HelperPorts ports_;
  std::shared_ptr<AdvancedClient> client_;  // the queue only, as is answered_
  bool answered_ = false;                   // the last request brought a sample

  mutable std::mutex mutex_;  // guards what follows, and the three above
  std::condition_variable settled_;
  bool asking_ = false;
  bool resting_ = false;  // after a failure
};

HelperReadings::HelperReadings(HelperPorts ports) : asker_(std::make_shared<Asker>(std::move(ports))) {}

HelperReadings::~HelperReadings() {
  asker_->end();
}

void HelperReadings::request() {
  asker_->request();
}
bool HelperReadings::settle(double seconds) {
  return asker_->settle(seconds);
}
std::optional<AdvancedSample> HelperReadings::latest() const {
  return asker_->read(&Asker::latest);
}
std::optional<DaemonStatus> HelperReadings::daemonStatus() const {
  return asker_->read(&Asker::daemon);
}
std::string HelperReadings::problem() const {
  return asker_->read(&Asker::problem);
}

std::string HelperReadings::status() const {
  const std::string problem = asker_->read(&Asker::problem);
  if (!problem.empty()) return problem;
  const auto sample = latest();
  return sample ? sample->statusDescription() : "The optional helper has not answered yet.";
}

}  // namespace monitor::vesk
