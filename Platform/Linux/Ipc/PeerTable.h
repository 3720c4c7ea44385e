// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Linux/Base/EventLoop.h"
#include "Platform/Linux/Ipc/Bus.h"
#include "Platform/Linux/Ipc/FairSender.h"

namespace monitor::platform {

class PeerTable;

// What a peer's requests are handed to: one for each peer that was accepted.
class PeerSession {
 public:
  enum class End : std::uint8_t { PeerLeft, BusLost, ServiceLeaves };
  virtual ~PeerSession() = default;
  // The last call: nothing reaches the peer any more.
  virtual void end(End reason) = 0;
};

// The answer to one request, given at most once, from any thread; it is sent by the bus's thread. An answer
// to a peer that has left goes nowhere.
class Answer {
 public:
  // Appends the answer's arguments; negative errno on failure. Runs on the bus's thread.
  using Fill = std::function<int(sd_bus_message*)>;
  void give(Fill fill) const;

 private:
  friend class PeerTable;
  struct Channel {
    std::weak_ptr<EventLoop> loop;
    PeerTable* table = nullptr;  // the bus's thread only; null once the table is gone
  };
  std::shared_ptr<Channel> channel_;
  std::uint64_t peer_ = 0;
  std::uint64_t request_ = 0;
};

// Everyone on the bus who has called the service: one session for each unique name. It begins with the name's
// first call, once the bus has told the user id behind the name and the accept hook has agreed, and ends when
// the name leaves the bus. Calls that arrive before the hook's word wait, in order.
//
// The bus's thread only, except for answers.
class PeerTable {
 public:
  struct Limits {
    std::size_t peers = 32;
    std::size_t requests = 64;  // of one peer: from their arrival until their answer is on its way
  };
  // Null: refused.
  using Accept = std::function<std::unique_ptr<PeerSession>(std::uint32_t userIdentifier)>;
  using Perform = std::function<void(PeerSession& session, const Answer& answer)>;

  // `bus` outlives the table. `emptied` is called whenever the last peer has gone, from a task of the loop or
  // a handler of the bus.
  PeerTable(sd_bus* bus, const std::shared_ptr<EventLoop>& loop, Limits limits, Accept accept,
            std::function<void()> emptied);
  ~PeerTable();
  PeerTable(const PeerTable&) = delete;
  PeerTable& operator=(const PeerTable&) = delete;

  // For a method handler: performs the call now or once its sender is accepted, or refuses it. The call
  // itself is not kept, however long it is.
  int handle(sd_bus_message* call, Perform perform);
  // Whether the call's sender has, or is about to have, a session.
  [[nodiscard]] bool knows(sd_bus_message* call) const;

  [[nodiscard]] bool empty() const { return peers_.empty(); }
  // Ends all sessions and takes no further call. Unless the bus is lost, the calls that it has taken are
  // performed and answered all the same: a peer stays in the table until it has its answers.
  void close(PeerSession::End reason);

 private:
  friend class Answer;
  struct Request {
    Message answer;
    Message refusal;  // both made at once, since the call is not kept
    Perform perform;
  };
  struct Peer {
    PeerTable* table = nullptr;
    std::uint64_t id = 0;
    std::string name;
    Slot departure;
    Slot credentials;
    std::unique_ptr<PeerSession> session;  // null until accepted
    std::vector<Request> held;             // until accepted
    // By request, until they are on their way; null once they are given.
    std::map<std::uint64_t, Message> answers;
  };
  using Peers = std::vector<std::unique_ptr<Peer>>;

  static int onDeparture(sd_bus_message* message, void* data, sd_bus_error* error) noexcept;
  static int onCredentials(sd_bus_message* message, void* data, sd_bus_error* error) noexcept;
  [[nodiscard]] Peer* find(const char* name) const;
  [[nodiscard]] Peer* find(std::uint64_t id) const;
  int add(const char* name, Peer*& peer);
  void decide(Peer& peer, std::uint32_t userIdentifier);
  [[nodiscard]] std::unique_ptr<PeerSession> accept(std::uint32_t userIdentifier) const;
  void start(Peer& peer, Request request);
  int refuse(sd_bus_message* call, std::uint64_t peer, const char* error, const std::string& text);
  void answer(std::uint64_t peer, std::uint64_t request, const Answer::Fill& fill);
  void answered(std::uint64_t peer, std::uint64_t request);
  void forget(Peer& peer);

  sd_bus* bus_;
  FairSender sender_;
  Limits limits_;
  Accept accept_;
  std::function<void()> emptied_;
  std::shared_ptr<Answer::Channel> channel_;
  std::uint64_t sequence_ = 0;
  bool closed_ = false;
  Peers peers_;
};

}  // namespace monitor::platform
