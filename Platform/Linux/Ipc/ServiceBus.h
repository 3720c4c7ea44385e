// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Platform/Linux/Ipc/Bus.h"
#include "Platform/Linux/Ipc/PeerTable.h"

namespace monitor::platform {

struct ServiceBusOptions {
  BusAddress address;
  std::string name;           // the well-known name
  double idleSeconds = 60.0;  // how long the service stays without a peer and without a call
  // How long a leaving service waits for the answers under way. A call of the audio system takes a second at
  // most.
  double lastAnswersSeconds = 2.0;
  PeerTable::Limits limits;
};

// A service's own connection: the name it owns, the peers who call it, and the reasons to leave.
//
// A service that has been idle leaves without losing a call: it gives the name back first, and the bus's word
// on that comes after every call that was sent to it before. If one of those brought a peer, the name is
// taken again and the service stays; where somebody else has taken it meanwhile, it stays for that peer only.
// A service that is told to leave goes the same way, at most `lastAnswersSeconds` long: what was sent to it
// before the name was free is answered. (A service manager tells it to as soon as the name is free, so the two
// happen together.)
//
// The loop's thread only.
class ServiceBus {
 public:
  // `left` is called once with the exit status when there is nothing more to do here; the object may be
  // destroyed after the loop has returned. std::system_error when the bus cannot be reached.
  ServiceBus(const std::shared_ptr<EventLoop>& loop, ServiceBusOptions options, PeerTable::Accept accept,
             std::function<void(int status)> left);
  ~ServiceBus();
  ServiceBus(const ServiceBus&) = delete;
  ServiceBus& operator=(const ServiceBus&) = delete;

  [[nodiscard]] sd_bus* bus() const { return bus_.get(); }
  [[nodiscard]] PeerTable& peers() { return peers_; }
  // After the objects are in place: takes the name. std::system_error, EEXIST when somebody else has it.
  void start();
  // Gives the name back, ends every session, lets the answers under way out and leaves with status 0.
  void leave();

 private:
  enum class Phase : std::uint8_t {
    Serving,
    GivingUp,    // the name is being given back
    TakingBack,  // … and asked for again
    Nameless,    // only for the peers that are left
    Leaving,     // sessions ended, answers under way
    Left,
  };

  static int onDisconnected(sd_bus_message* message, void* data, sd_bus_error* error) noexcept;
  static int onMessage(sd_bus_message* message, void* data, sd_bus_error* error) noexcept;
  static int onReleased(sd_bus_message* message, void* data, sd_bus_error* error) noexcept;
  static int onTakenBack(sd_bus_message* message, void* data, sd_bus_error* error) noexcept;
  static int onIdle(sd_event_source* source, std::uint64_t time, void* data) noexcept;
  static int onLate(sd_event_source* source, std::uint64_t time, void* data) noexcept;

  void peersEmptied();
  void setTimer(double seconds, sd_event_time_handler_t handler);
  void giveNameUp();
  void endSessions();
  void finish(int status);

  std::shared_ptr<EventLoop> loop_;
  ServiceBusOptions options_;
  std::function<void(int)> left_;
  Bus bus_;
  PeerTable peers_;
  Phase phase_ = Phase::Serving;
  bool told_ = false;  // to leave
  std::uint64_t lastCall_ = 0;  // µs of the monotonic clock
  EventSource timer_;
  Slot disconnected_;
  Slot messages_;
  Slot pending_;
};

}  // namespace monitor::platform
