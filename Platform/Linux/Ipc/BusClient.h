// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "MonitorCore/Ports/ServiceConnection.h"
#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Ipc/Bus.h"

namespace monitor::platform {

// A client's connection to one service: a bus connection, and so a unique name, of its own, since that name
// is what the service knows its client by. A thread of its own runs it; handlers, replies and errors are
// called there.
//
// The service is started by the first message. When the process that answered is gone, the messages it leaves
// open fail, the interruption handler runs, and the next message reaches, or starts, the next process. The
// connection becomes invalid, once and for good, by invalidate(), by the loss of the bus, when there is no
// such service and none can be started, and when the service refuses this client. Messages wait without
// limit; time-outs are the caller's.
//
// All members may be called from any thread; the handlers are set before resume(). Ends with invalidate() or
// release(), in any case.
class BusClient : public std::enable_shared_from_this<BusClient> {
 public:
  struct Target {
    BusAddress bus;
    std::string service;  // well-known name
    std::string path;
  };
  struct Call {
    const char* interface = nullptr;
    const char* member = nullptr;
    // Both run on the connection's thread and return a negative errno on failure; `reply` calls nobody then.
    std::function<int(sd_bus_message*)> append;
    std::function<int(sd_bus_message*)> reply;
    std::function<void(const RemoteError&)> error;  // may be empty
  };

  explicit BusClient(Target target);
  ~BusClient();
  BusClient(const BusClient&) = delete;
  BusClient& operator=(const BusClient&) = delete;

  void setInvalidationHandler(std::function<void()> handler) { invalidation_ = std::move(handler); }
  void setInterruptionHandler(std::function<void()> handler) { interruption_ = std::move(handler); }
  void resume();
  // What was sent still reaches the bus; open messages fail; the invalidation handler runs.
  void invalidate();
  // The same without the handlers: nobody is interested any more.
  void release();
  // Exactly one of reply and error is called.
  void send(Call call);

 private:
  struct Pending {
    BusClient* client = nullptr;
    std::uint64_t id = 0;
    std::uint64_t epoch = 0;
    Call call;
    Slot slot;
  };
  enum class Phase : std::uint8_t { Idle, Open, Invalid };

  static int onReply(sd_bus_message* message, void* data, sd_bus_error* error) noexcept;
  static int onDeparture(sd_bus_message* message, void* data, sd_bus_error* error) noexcept;
  static int onOwnerState(sd_bus_message* message, void* data, sd_bus_error* error) noexcept;
  static int onDisconnected(sd_bus_message* message, void* data, sd_bus_error* error) noexcept;

  void post(void (BusClient::*action)());
  void open();
  void dispatch(Call call);
  int transmit(Pending& pending);
  void failed(const Pending& pending, const sd_bus_error& error);
  void noticeOwner(sd_bus_message* reply);
  void checkOwner();
  void interrupt();
  void endLoudly();
  void endQuietly();
  void end();

  const Target target_;
  EventLoopThread thread_;
  // The connection's thread only, once resumed.
  std::function<void()> invalidation_;
  std::function<void()> interruption_;
  Phase phase_ = Phase::Idle;
  RemoteError endReason_;
  std::string owner_;        // unique name of the process that answered; empty before the first answer
  std::uint64_t epoch_ = 0;  // how many such processes have gone
  bool ownerDied_ = false;   // known before the check of the owner is answered
  std::uint64_t lastId_ = 0;
  Bus bus_;
  Slot disconnected_;
  Slot ownerDeparture_;
  Slot ownerState_;
  std::map<std::uint64_t, std::unique_ptr<Pending>> pending_;
};

}  // namespace monitor::platform
