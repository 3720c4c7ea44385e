// SPDX-License-Identifier: MIT
#include "Platform/Linux/Ipc/BusClient.h"

#include <cerrno>
#include <string_view>
#include <system_error>

#include "Platform/Linux/Base/EventLoop.h"
#include "Platform/Linux/Ipc/BusNames.h"

namespace monitor::platform {
namespace {

constexpr std::uint64_t kNoTimeout = UINT64_MAX;

RemoteError failure(const char* name, int number, const std::string& what) {
  return {name, number, what + ": " + std::generic_category().message(number)};
}

void tell(const BusClient::Call& call, const RemoteError& error) {
  if (call.error) call.error(error);
}

bool meansNoService(std::string_view error) {
  return error == names::kServiceUnknown || error == names::kNameHasNoOwner ||
         error.starts_with(names::kSpawnPrefix);
}

}  // namespace

BusClient::BusClient(Target target)
    : target_(std::move(target)),
      thread_(target_.service, QualityOfService::UserInitiated),
      endReason_{names::kDisconnected, ENOTCONN, "The connection to the service was invalidated."} {}

BusClient::~BusClient() = default;

void BusClient::post(void (BusClient::*action)()) {
  thread_.loop()->submit([self = shared_from_this(), action] { (self.get()->*action)(); });
}

void BusClient::resume() {
  post(&BusClient::open);
}
void BusClient::invalidate() {
  post(&BusClient::endLoudly);
}
void BusClient::release() {
  post(&BusClient::endQuietly);
}

void BusClient::send(Call call) {
  thread_.loop()->submit(
      [self = shared_from_this(), call = std::move(call)]() mutable { self->dispatch(std::move(call)); });
}

void BusClient::open() {
  if (phase_ != Phase::Idle) return;
  phase_ = Phase::Open;
  bus_ = openBus(target_.bus, thread_.loop()->event());
  const int error =
      bus_ == nullptr ? errno : -watchDisconnection(bus_.get(), disconnected_, onDisconnected, this);
  if (error <= 0) return;
  endReason_ = failure(names::kDisconnected, error, "Cannot connect to the message bus");
  endLoudly();
}

void BusClient::dispatch(Call call) {
  if (phase_ != Phase::Open) return tell(call, endReason_);
  auto pending = std::make_unique<Pending>();
  pending->client = this;
  pending->id = ++lastId_;
  pending->epoch = epoch_;
  pending->call = std::move(call);
  const int result = transmit(*pending);
  if (result < 0)
    return tell(pending->call, failure(names::kDisconnected, -result, "The request was not sent"));
  pending_.emplace(pending->id, std::move(pending));
}

int BusClient::transmit(Pending& pending) {
  sd_bus_message* made = nullptr;
  int result =
      sd_bus_message_new_method_call(bus_.get(), &made, target_.service.c_str(), target_.path.c_str(),
                                     pending.call.interface, pending.call.member);
  const Message message(made);
  if (result >= 0) result = pending.call.append(made);
  sd_bus_slot* slot = nullptr;
  if (result >= 0) result = sd_bus_call_async(bus_.get(), &slot, made, onReply, &pending, kNoTimeout);
  pending.slot.reset(slot);
  return result;
}

int BusClient::onReply(sd_bus_message* message, void* data, sd_bus_error* /*error*/) noexcept {
  auto& answered = *static_cast<Pending*>(data);
  const auto self = answered.client->shared_from_this();
  const auto pending = std::move(self->pending_.extract(answered.id).mapped());
  if (const auto* error = sd_bus_message_get_error(message)) {
    self->failed(*pending, *error);
    return 0;
  }
  self->noticeOwner(message);
  const int result = pending->call.reply(message);
  if (result < 0)
    tell(pending->call, failure(names::kInvalidSignature, -result, "The answer has another form"));
  return 0;
}

void BusClient::failed(const Pending& pending, const sd_bus_error& error) {
  tell(pending.call,
       {error.name, sd_bus_error_get_errno(&error), error.message != nullptr ? error.message : ""});
  // A bus that is closing fails everything by itself, and then tells onDisconnected.
  if (sd_bus_is_open(bus_.get()) <= 0) return;
  if (std::string_view(error.name) == names::kAccessDenied || meansNoService(error.name)) {
    post(&BusClient::endLoudly);
  } else if (std::string_view(error.name) == names::kNoReply && pending.epoch == epoch_) {
    // There are no time-outs here: the bus says so of a process that has gone.
    ownerDied_ = true;
    checkOwner();
  }
}

void BusClient::noticeOwner(sd_bus_message* reply) {
  const char* sender = sd_bus_message_get_sender(reply);
  if (sender == nullptr || owner_ == sender) return;
  // The name has moved on, and what the former owner kept for this client is out of reach.
  if (!owner_.empty() || ownerDied_) interrupt();
  owner_ = sender;
  // The owner may have gone before the bus saw the match; the check comes after it and finds that out.
  if (watchDeparture(bus_.get(), owner_, ownerDeparture_, onDeparture, this) >= 0) checkOwner();
}

// The bus answers after it has delivered everything that the loss of the owner causes, the errors of open
// messages above all: the interruption comes last.
void BusClient::checkOwner() {
  sd_bus_slot* slot = nullptr;
  const char* name = owner_.empty() ? target_.service.c_str() : owner_.c_str();
  sd_bus_call_method_async(bus_.get(), &slot, names::kBus, names::kBusPath, names::kBus, "NameHasOwner",
                           onOwnerState, this, "s", name);
  ownerState_.reset(slot);
}

int BusClient::onDeparture(sd_bus_message* /*message*/, void* data, sd_bus_error* /*error*/) noexcept {
  auto& self = *static_cast<BusClient*>(data);
  self.ownerDied_ = true;
  self.checkOwner();
  return 0;
}

int BusClient::onOwnerState(sd_bus_message* message, void* data, sd_bus_error* /*error*/) noexcept {
  const auto self = static_cast<BusClient*>(data)->shared_from_this();
  int lives = 1;
  if (sd_bus_message_is_method_error(message, nullptr) == 0) sd_bus_message_read_basic(message, 'b', &lives);
  if (self->ownerDied_ || lives == 0) self->interrupt();
  return 0;
}

void BusClient::interrupt() {
  ++epoch_;
  owner_.clear();
  ownerDied_ = false;
  ownerDeparture_.reset();
  ownerState_.reset();
  if (interruption_) interruption_();
}

int BusClient::onDisconnected(sd_bus_message* /*message*/, void* data, sd_bus_error* /*error*/) noexcept {
  auto& self = *static_cast<BusClient*>(data);
  self.endReason_.text = "The connection to the message bus is lost.";
  self.post(&BusClient::endLoudly);
  return 0;
}

void BusClient::endLoudly() {
  const bool first = phase_ != Phase::Invalid;
  const auto handler = std::exchange(invalidation_, nullptr);
  end();
  if (first && handler) handler();
}

void BusClient::endQuietly() {
  invalidation_ = nullptr;
  end();
}

// Never from a handler of the bus, which is destroyed here.
void BusClient::end() {
  phase_ = Phase::Invalid;
  interruption_ = nullptr;
  for (const auto& [id, pending] : std::exchange(pending_, {})) {
    pending->slot.reset();
    tell(pending->call, endReason_);
  }
  ownerState_.reset();
  ownerDeparture_.reset();
  disconnected_.reset();
  bus_.reset();
}

}  // namespace monitor::platform
