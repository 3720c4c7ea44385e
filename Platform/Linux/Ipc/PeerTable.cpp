// SPDX-License-Identifier: MIT
#include "Platform/Linux/Ipc/PeerTable.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <utility>

#include "Platform/Linux/Ipc/BusNames.h"

namespace monitor::platform {
namespace {

// Who shares one turn among those who are answered: everybody without a session.
constexpr std::uint64_t kStrangers = 0;

}  // namespace

void Answer::give(Fill fill) const {
  const auto loop = channel_->loop.lock();
  if (loop == nullptr) return;
  loop->submit([channel = channel_, peer = peer_, request = request_, fill = std::move(fill)] {
    if (channel->table != nullptr) channel->table->answer(peer, request, fill);
  });
}

PeerTable::PeerTable(sd_bus* bus, const std::shared_ptr<EventLoop>& loop, Limits limits, Accept accept,
                     std::function<void()> emptied)
    : bus_(bus),
      sender_(bus, loop->event()),
      limits_(limits),
      accept_(std::move(accept)),
      emptied_(std::move(emptied)),
      channel_(std::make_shared<Answer::Channel>()) {
  channel_->loop = loop;
  channel_->table = this;
}

PeerTable::~PeerTable() {
  channel_->table = nullptr;
}

int PeerTable::handle(sd_bus_message* call, Perform perform) {
  if (closed_) return refuse(call, kStrangers, names::kDisconnected, "The service is leaving.");
  Peer* peer = find(sd_bus_message_get_sender(call));
  if (peer == nullptr) {
    if (peers_.size() >= limits_.peers) {
      return refuse(call, kStrangers, names::kLimitsExceeded, "The service has too many clients.");
    }
    const int added = add(sd_bus_message_get_sender(call), peer);
    if (added < 0) return added;
  }
  if (peer->held.size() + peer->answers.size() >= limits_.requests) {
    return refuse(call, peer->id, names::kLimitsExceeded, "Too many requests are waiting.");
  }
  Request request;
  sd_bus_message* made = nullptr;
  int result = sd_bus_message_new_method_return(call, &made);
  request.answer.reset(made);
  if (result >= 0 && peer->session == nullptr) {
    result = sd_bus_message_new_method_errorf(call, &made, names::kAccessDenied, "%s", names::kClientRefused);
    request.refusal.reset(made);
  }
  if (result < 0) return result;
  request.perform = std::move(perform);
  if (peer->session != nullptr) {
    start(*peer, std::move(request));
  } else {
    peer->held.push_back(std::move(request));
  }
  return 1;
}

bool PeerTable::knows(sd_bus_message* call) const {
  return find(sd_bus_message_get_sender(call)) != nullptr;
}

void PeerTable::close(PeerSession::End reason) {
  closed_ = true;
  for (const auto& peer : peers_) {
    if (const auto session = std::exchange(peer->session, nullptr)) session->end(reason);
  }
  const auto done = [reason](const auto& peer) {
    return (peer->answers.empty() && peer->held.empty()) || reason == PeerSession::End::BusLost;
  };
  peers_.erase(std::remove_if(peers_.begin(), peers_.end(), done), peers_.end());
}

// The texts are short: a refusal has to be smaller than the request, or the bus takes fewer of them from us
// than it brings requests, and everybody's answers get stuck behind them.
int PeerTable::refuse(sd_bus_message* call, std::uint64_t peer, const char* error, const std::string& text) {
  sd_bus_message* made = nullptr;
  const int result = sd_bus_message_new_method_errorf(call, &made, error, "%s", text.c_str());
  if (result >= 0) sender_.send(peer, Message(made));
  return result < 0 ? result : 1;
}

PeerTable::Peer* PeerTable::find(std::uint64_t id) const {
  const auto found =
      std::find_if(peers_.begin(), peers_.end(), [id](const auto& peer) { return peer->id == id; });
  return found != peers_.end() ? found->get() : nullptr;
}

PeerTable::Peer* PeerTable::find(const char* name) const {
  if (name == nullptr) return nullptr;
  const auto found =
      std::find_if(peers_.begin(), peers_.end(), [name](const auto& peer) { return peer->name == name; });
  return found != peers_.end() ? found->get() : nullptr;
}

int PeerTable::add(const char* name, Peer*& peer) {
  if (name == nullptr) return -EBADMSG;
  auto made = std::make_unique<Peer>();
  made->table = this;
  made->id = ++sequence_;
  made->name = name;
  // In this order: a name that leaves before the bus has seen the match has no user id any more, and that
  // ends the peer too.
  int result = watchDeparture(bus_, made->name, made->departure, onDeparture, made.get());
  if (result >= 0) {
    sd_bus_slot* slot = nullptr;
    result = sd_bus_call_method_async(bus_, &slot, names::kBus, names::kBusPath, names::kBus,
                                      "GetConnectionUnixUser", onCredentials, made.get(), "s", name);
    made->credentials.reset(slot);
  }
  if (result < 0) return result;
  peer = made.get();
  peers_.push_back(std::move(made));
  return result;
}

int PeerTable::onCredentials(sd_bus_message* message, void* data, sd_bus_error* /*error*/) noexcept {
  auto& peer = *static_cast<Peer*>(data);
  std::uint32_t user = 0;
  if (sd_bus_message_is_method_error(message, nullptr) != 0 ||
      sd_bus_message_read_basic(message, 'u', &user) < 0) {
    peer.table->forget(peer);
  } else {
    peer.table->decide(peer, user);
  }
  return 0;
}

void PeerTable::decide(Peer& peer, std::uint32_t userIdentifier) {
  peer.session = accept(userIdentifier);
  auto held = std::exchange(peer.held, {});
  if (peer.session == nullptr) {
    for (auto& request : held) sender_.send(kStrangers, std::move(request.refusal));
    forget(peer);
    return;
  }
  for (auto& request : held) start(peer, std::move(request));
  if (closed_) std::exchange(peer.session, nullptr)->end(PeerSession::End::ServiceLeaves);
}

std::unique_ptr<PeerSession> PeerTable::accept(std::uint32_t userIdentifier) const {
  try {
    return accept_(userIdentifier);
  } catch (const std::exception& error) {
    // No thread or descriptor left for the session, for one. The others are served all the same.
    std::fprintf(stderr, "A client was refused: %s\n", error.what());
    return nullptr;
  }
}

void PeerTable::start(Peer& peer, Request request) {
  const auto id = ++sequence_;
  peer.answers.emplace(id, std::move(request.answer));
  Answer answer;
  answer.channel_ = channel_;
  answer.peer_ = peer.id;
  answer.request_ = id;
  request.perform(*peer.session, answer);
}

void PeerTable::answer(std::uint64_t peer, std::uint64_t request, const Answer::Fill& fill) {
  auto* asker = find(peer);
  if (asker == nullptr) return;
  const auto found = asker->answers.find(request);
  if (found == asker->answers.end() || found->second == nullptr) return;
  auto message = std::move(found->second);
  const int result = fill(message.get());
  if (result < 0) {
    std::fprintf(stderr, "An answer could not be written: error %d\n", -result);
    return answered(peer, request);
  }
  sender_.send(peer, std::move(message), [this, peer, request] { answered(peer, request); });
}

void PeerTable::answered(std::uint64_t peer, std::uint64_t request) {
  auto* asker = find(peer);
  if (asker == nullptr) return;
  asker->answers.erase(request);
  if (closed_ && asker->answers.empty()) forget(*asker);
}

int PeerTable::onDeparture(sd_bus_message* /*message*/, void* data, sd_bus_error* /*error*/) noexcept {
  auto& peer = *static_cast<Peer*>(data);
  peer.table->forget(peer);
  return 0;
}

void PeerTable::forget(Peer& peer) {
  const auto found = std::find_if(peers_.begin(), peers_.end(),
                                  [&peer](const auto& candidate) { return candidate.get() == &peer; });
  if (found == peers_.end()) return;
  const auto owned = std::move(*found);
  peers_.erase(found);
  sender_.drop(owned->id);
  if (owned->session != nullptr) owned->session->end(PeerSession::End::PeerLeft);
  if (peers_.empty()) emptied_();
}

}  // namespace monitor::platform
