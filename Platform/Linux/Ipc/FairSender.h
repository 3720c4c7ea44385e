// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>

#include "Platform/Linux/Ipc/Bus.h"

namespace monitor::platform {

// Sends the messages of many clients over one bus connection, each client's in order and the clients in turn,
// so that what one of them has coming does not hold up the others: the bus takes messages from us more slowly
// than it brings them, and a queue shared by all would make everybody wait for the greediest.
//
// Little is handed to the bus connection ahead of time: one message, and what the socket holds. The loop's
// thread only.
class FairSender {
 public:
  using Client = std::uint64_t;

  // Both outlive the sender. std::system_error when the loop refuses.
  FairSender(sd_bus* bus, sd_event* event);
  FairSender(const FairSender&) = delete;
  FairSender& operator=(const FairSender&) = delete;

  // `sent` runs when the message has been handed over.
  void send(Client client, Message message, std::function<void()> sent = {});
  // Forgets what the client has coming; nothing of it is `sent`.
  void drop(Client client) { waiting_.erase(client); }

 private:
  struct Entry {
    Message message;
    std::function<void()> sent;
  };

  static int onLoopTurn(sd_event_source* source, void* data) noexcept;
  void flush();
  void waitForTurns(bool wait);

  sd_bus* bus_;
  EventSource turn_;
  bool waitsForTurns_ = true;
  Client last_ = 0;  // who was served last
  std::map<Client, std::deque<Entry>> waiting_;
};

// Keeps the socket's own queue short, for the same reason. Without effect where that is not possible.
void shortenSendBuffer(sd_bus* bus);

}  // namespace monitor::platform
