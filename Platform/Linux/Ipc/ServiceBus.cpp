// SPDX-License-Identifier: MIT
#include "Platform/Linux/Ipc/ServiceBus.h"

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <utility>

namespace monitor::platform {
namespace {

void require(int result, const std::string& what) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), what);
}

Bus connected(const BusAddress& address, sd_event* event) {
  Bus bus = openBus(address, event);
  if (bus == nullptr) throw std::system_error(errno, std::generic_category(), "cannot connect to the bus");
  return bus;
}

std::uint64_t monotonicNow(sd_event* event) {
  std::uint64_t now = 0;
  sd_event_now(event, CLOCK_MONOTONIC, &now);
  return now;
}

std::uint64_t microseconds(double seconds) {
  return static_cast<std::uint64_t>(seconds * 1e6);
}

}  // namespace

ServiceBus::ServiceBus(const std::shared_ptr<EventLoop>& loop, ServiceBusOptions options,
                       PeerTable::Accept accept, std::function<void(int status)> left)
    : loop_(loop),
      options_(std::move(options)),
      left_(std::move(left)),
      bus_(connected(options_.address, loop->event())),
      peers_(bus_.get(), loop, options_.limits, std::move(accept), [this] { peersEmptied(); }) {}

ServiceBus::~ServiceBus() = default;

void ServiceBus::start() {
  require(watchDisconnection(bus_.get(), disconnected_, onDisconnected, this), "cannot watch the bus");
  sd_bus_slot* filter = nullptr;
  require(sd_bus_add_filter(bus_.get(), &filter, onMessage, this), "cannot watch the calls");
  messages_.reset(filter);
  // Waits for the bus's word: nothing is served before, and a second service has to know at once.
  require(sd_bus_request_name(bus_.get(), options_.name.c_str(), 0), "cannot take the name " + options_.name);
  shortenSendBuffer(bus_.get());
  lastCall_ = monotonicNow(loop_->event());
  setTimer(options_.idleSeconds, onIdle);
}

void ServiceBus::leave() {
  if (told_ || phase_ == Phase::Left) return;
  told_ = true;
  setTimer(options_.lastAnswersSeconds, onLate);
  switch (phase_) {
    case Phase::Serving:
    case Phase::TakingBack:
      return giveNameUp();
    case Phase::Nameless:
      return endSessions();
    case Phase::GivingUp:  // the bus's word is on its way
    case Phase::Leaving:
    case Phase::Left:
      return;
  }
}

void ServiceBus::endSessions() {
  phase_ = Phase::Leaving;
  pending_.reset();
  peers_.close(PeerSession::End::ServiceLeaves);
  if (peers_.empty()) finish(EXIT_SUCCESS);
}

int ServiceBus::onDisconnected(sd_bus_message* /*message*/, void* data, sd_bus_error* /*error*/) noexcept {
  auto& self = *static_cast<ServiceBus*>(data);
  if (self.phase_ == Phase::Left) return 0;
  std::fprintf(stderr, "The connection to the bus is lost.\n");
  self.peers_.close(PeerSession::End::BusLost);
  self.finish(EXIT_FAILURE);
  return 0;
}

int ServiceBus::onMessage(sd_bus_message* message, void* data, sd_bus_error* /*error*/) noexcept {
  auto& self = *static_cast<ServiceBus*>(data);
  std::uint8_t type = 0;
  if (sd_bus_message_get_type(message, &type) >= 0 && type == SD_BUS_MESSAGE_METHOD_CALL) {
    self.lastCall_ = monotonicNow(self.loop_->event());
  }
  return 0;
}

void ServiceBus::peersEmptied() {
  switch (phase_) {
    case Phase::Serving:
      return setTimer(options_.idleSeconds, onIdle);
    case Phase::Nameless:
    case Phase::Leaving:
      return finish(EXIT_SUCCESS);
    case Phase::GivingUp:
    case Phase::TakingBack:
    case Phase::Left:
      return;
  }
}

int ServiceBus::onIdle(sd_event_source* /*source*/, std::uint64_t time, void* data) noexcept {
  auto& self = *static_cast<ServiceBus*>(data);
  if (self.phase_ != Phase::Serving || !self.peers_.empty()) return 0;
  const auto due = self.lastCall_ + microseconds(self.options_.idleSeconds);
  if (time < due) {
    self.setTimer(static_cast<double>(due - time) * 1e-6, onIdle);
  } else {
    self.giveNameUp();
  }
  return 0;
}

void ServiceBus::giveNameUp() {
  phase_ = Phase::GivingUp;
  sd_bus_slot* slot = nullptr;
  if (sd_bus_release_name_async(bus_.get(), &slot, options_.name.c_str(), onReleased, this) < 0) {
    return finish(EXIT_FAILURE);
  }
  pending_.reset(slot);
}

int ServiceBus::onReleased(sd_bus_message* /*message*/, void* data, sd_bus_error* /*error*/) noexcept {
  auto& self = *static_cast<ServiceBus*>(data);
  if (self.told_) {
    self.endSessions();
    return 0;
  }
  if (self.peers_.empty()) {
    self.finish(EXIT_SUCCESS);
    return 0;
  }
  self.phase_ = Phase::TakingBack;
  sd_bus_slot* slot = nullptr;
  if (sd_bus_request_name_async(self.bus_.get(), &slot, self.options_.name.c_str(), 0, onTakenBack, &self) <
      0) {
    self.phase_ = Phase::Nameless;
    return 0;
  }
  self.pending_.reset(slot);
  return 0;
}

int ServiceBus::onTakenBack(sd_bus_message* message, void* data, sd_bus_error* /*error*/) noexcept {
  constexpr std::uint32_t kPrimaryOwner = 1;
  auto& self = *static_cast<ServiceBus*>(data);
  std::uint32_t outcome = 0;
  const bool owner = sd_bus_message_is_method_error(message, nullptr) == 0 &&
                     sd_bus_message_read_basic(message, 'u', &outcome) >= 0 && outcome == kPrimaryOwner;
  self.phase_ = owner ? Phase::Serving : Phase::Nameless;
  if (self.peers_.empty()) self.peersEmptied();
  return 0;
}

int ServiceBus::onLate(sd_event_source* /*source*/, std::uint64_t /*time*/, void* data) noexcept {
  auto& self = *static_cast<ServiceBus*>(data);
  // A bus that stands still has not even said its word on the name.
  self.peers_.close(PeerSession::End::ServiceLeaves);
  self.finish(EXIT_SUCCESS);
  return 0;
}

void ServiceBus::setTimer(double seconds, sd_event_time_handler_t handler) {
  // Some slack lets the kernel merge the wake-up with others.
  const auto accuracy = std::max<std::uint64_t>(microseconds(seconds) / 60, 1);
  sd_event_source* source = nullptr;
  sd_event_add_time_relative(loop_->event(), &source, CLOCK_MONOTONIC, microseconds(seconds), accuracy,
                             handler, this);
  timer_.reset(source);
}

void ServiceBus::finish(int status) {
  if (phase_ == Phase::Left) return;
  phase_ = Phase::Left;
  timer_.reset();
  left_(status);
}

}  // namespace monitor::platform
