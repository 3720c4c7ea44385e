// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "Platform/Linux/Ipc/Bus.h"
#include "Tools/vesk/Agent/BusCalls.h"
#include "Tools/vesk/Agent/GainKeeper.h"

namespace monitor::vesk::agent {

// Puts a keeper on the bus. Everything runs on the keeper's queue, to whose loop the bus is attached; bus and
// keeper outlive the server.
class AgentServer {
 public:
  // Serves the processes of `owner` only. std::system_error when the bus refuses.
  AgentServer(sd_bus* bus, GainKeeper& keeper, std::uint32_t owner);
  AgentServer(const AgentServer&) = delete;
  AgentServer& operator=(const AgentServer&) = delete;

  // Takes the name under which the agent is called. False when another agent has it.
  [[nodiscard]] bool takeName();
  // Gives the name up and answers whatever was sent to it before that, what is under way included, with
  // kLeavingError: no call is left without an answer. After that the agent is to end.
  void leave();

 private:
  using Handler = int (AgentServer::*)(sd_bus_message*);
  template <Handler handler>
  static int call(sd_bus_message* message, void* self, sd_bus_error* error) noexcept;

  // 0, or a negative status with `error` set.
  int admit(sd_bus_message* message, sd_bus_error* error);
  int list(sd_bus_message* message);
  int setGain(sd_bus_message* message);
  int stop(sd_bus_message* message);
  int status(sd_bus_message* message);
  // Keeps a call until it is answered, with what `write` puts into the reply. Whoever answers calls the
  // function that is returned, with what `write` is to be given.
  template <class Result>
  [[nodiscard]] std::function<void(Result)> answering(sd_bus_message* message,
                                                      void (*write)(sd_bus_message* reply, const Result&));

  static const sd_bus_vtable kTable[];

  sd_bus* bus_;
  GainKeeper& keeper_;
  std::uint32_t owner_;
  bool leaving_ = false;
  std::map<std::uint64_t, std::shared_ptr<sd_bus_message>> open_;  // calls under way
  std::uint64_t lastCall_ = 0;
  platform::Slot slot_;
};

}  // namespace monitor::vesk::agent
