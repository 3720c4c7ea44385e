// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "MonitorCore/Ports/ServiceConnection.h"
#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Ipc/PeerTable.h"
#include "Platform/Linux/Ipc/ProtocolPeerSession.h"
#include "Platform/Linux/Ipc/ServiceBus.h"

namespace monitor::platform {

// What the accept hook configures. The hook may keep it; the listener keeps it as long as the peer is there.
template <class Protocol>
class BusServiceConnection final : public ServiceConnection<Protocol> {
 public:
  explicit BusServiceConnection(std::uint32_t userIdentifier) : userIdentifier_(userIdentifier) {}

  [[nodiscard]] std::uint32_t effectiveUserIdentifier() const override { return userIdentifier_; }
  void setCodeSigningRequirement(std::string_view requirement) override { requirement_ = requirement; }
  void setExportedInterface() override {}  // the listener exports the only one there is
  void setExportedObject(std::shared_ptr<Protocol> object) override { object_ = std::move(object); }
  void setInvalidationHandler(std::function<void()> handler) override { invalidation_ = std::move(handler); }
  void setInterruptionHandler(std::function<void()> handler) override { interruption_ = std::move(handler); }
  void resume() override { resumed_ = true; }

  [[nodiscard]] bool serves() const { return resumed_ && object_ != nullptr; }
  [[nodiscard]] Protocol& object() { return *object_; }
  void end(PeerSession::End reason) {
    const auto interrupted = std::exchange(interruption_, nullptr);
    const auto invalidated = std::exchange(invalidation_, nullptr);
    if (reason == PeerSession::End::BusLost && interrupted) interrupted();
    if (invalidated) invalidated();
    object_.reset();
  }

 private:
  std::uint32_t userIdentifier_;
  std::string requirement_;
  std::shared_ptr<Protocol> object_;
  std::function<void()> invalidation_;
  std::function<void()> interruption_;
  bool resumed_ = false;
};

// A service on a bus. The thread that resumes it is the service's IPC thread: the accept hook, the handlers
// of the connections and the calls of the exported objects run there, and nothing else does.
//
// `Export` is the service's object on the bus, made of the bus and a table of peers whose sessions are
// ProtocolPeerSession<Protocol>.
//
// The bus vouches for the user id of a peer and for nothing more: code-signing requirements are carried, not
// enforced.
template <class Protocol, class Export>
class BusServiceListener : public ServiceListener<Protocol> {
 public:
  BusServiceListener(std::shared_ptr<MainQueue> queue, ServiceBusOptions options)
      : queue_(std::move(queue)), options_(std::move(options)) {}
  BusServiceListener(const BusServiceListener&) = delete;
  BusServiceListener& operator=(const BusServiceListener&) = delete;

  void setConnectionCodeSigningRequirement(std::string_view requirement) override {
    requirement_ = requirement;
  }
  void setDelegate(ServiceListenerDelegate<Protocol>* delegate) override { delegate_ = delegate; }
  // Runs the queue given at construction until the service leaves: 0 after stop() or an idle minute, 1 when
  // the bus is lost or cannot be had, which is said on stderr. No session is left by then; the work that the
  // sessions submitted elsewhere may still be under way. REQUIRES: a delegate.
  int resume() override {
    int status = EXIT_FAILURE;
    try {
      ServiceBus bus(
          queue_->loop(), options_, [this](std::uint32_t user) { return accept(user); },
          [this, &status](int result) {
            status = result;
            queue_->quit();
          });
      const Export object(bus.bus(), bus.peers());
      bus.start();
      serving_ = &bus;
      queue_->run();
      serving_ = nullptr;
    } catch (const std::exception& error) {
      std::fprintf(stderr, "%s: %s\n", options_.name.c_str(), error.what());
    }
    return status;
  }

  // Any thread: ends the sessions, lets the answers under way out, and makes resume() return 0.
  void stop() {
    queue_->submit([this] {
      if (serving_ != nullptr) serving_->leave();
    });
  }
  [[nodiscard]] const std::string& requirement() const { return requirement_; }

 private:
  using Connection = BusServiceConnection<Protocol>;

  class AcceptedPeer final : public ProtocolPeerSession<Protocol> {
   public:
    explicit AcceptedPeer(std::shared_ptr<Connection> connection) : connection_(std::move(connection)) {}
    [[nodiscard]] Protocol& object() override { return connection_->object(); }
    void end(PeerSession::End reason) override { connection_->end(reason); }

   private:
    std::shared_ptr<Connection> connection_;
  };

  [[nodiscard]] std::unique_ptr<PeerSession> accept(std::uint32_t userIdentifier) {
    auto connection = std::make_shared<Connection>(userIdentifier);
    if (!delegate_->shouldAcceptNewConnection(connection) || !connection->serves()) return nullptr;
    return std::make_unique<AcceptedPeer>(std::move(connection));
  }

  std::shared_ptr<MainQueue> queue_;
  ServiceBusOptions options_;
  std::string requirement_;
  ServiceListenerDelegate<Protocol>* delegate_ = nullptr;
  ServiceBus* serving_ = nullptr;  // the queue only
};

}  // namespace monitor::platform
