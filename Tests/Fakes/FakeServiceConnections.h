// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "MonitorCore/MonitorAudioProtocol.h"
#include "MonitorCore/MonitorHelperProtocol.h"
#include "MonitorCore/Ports/SerialQueue.h"
#include "MonitorCore/Ports/ServiceConnection.h"

// A service and its clients in one process: a client made by the factory reaches the object that the
// service's delegate exported, and whatever a transport can do to the two is a call away.
//
// All work (accepting, delivering, replies, handlers) runs as tasks of the one queue given at construction,
// which stands for the transport's thread; on a VirtualTime queue nothing happens until the test says run().
// The ends may be used from every thread that the queue may be used from.
namespace monitor::fakes {

inline constexpr std::string_view kFakeTransportDomain = "in-process";
inline constexpr std::int64_t kFakeInterrupted = 4097;
inline constexpr std::int64_t kFakeInvalid = 4099;

template <class Protocol>
class FakeTransport;
template <class Protocol>
class FakeRemoteConnection;

// One client's connection, both ends. Written by the transport's tasks; tests read it when nothing is under
// way.
template <class Protocol>
class FakeLink {
 public:
  enum class State : std::uint8_t {
    Idle,         // not resumed yet
    Waiting,      // resumed, the service does not listen yet
    Live,         // accepted
    Interrupted,  // the service died; the next message is accepted anew
    Invalid,      // over
  };
  using ErrorHandler = typename RemoteConnection<Protocol>::ErrorHandler;

  State state = State::Idle;
  std::string serviceName;
  bool privileged = false;
  std::uint32_t user = 0;
  std::string serviceRequirement;  // what the service demands of this client
  std::string clientRequirement;   // what the client demands of the service
  // What each end was told, in order: "requirement", "interface", "object", "invalidation", "interruption",
  // "resume".
  std::vector<std::string> serviceCalls;
  std::vector<std::string> clientCalls;
  std::size_t accepted = 0;              // how often the delegate took the connection …
  std::size_t refused = 0;               // … and how often not
  std::size_t delivered = 0;             // messages that reached the service's object
  std::weak_ptr<Protocol> lastExported;  // expired once the service let go of its object

  // Messages neither answered nor failed.
  [[nodiscard]] std::size_t openMessages() const { return open_.size(); }
  // The object that messages reach; null unless live.
  [[nodiscard]] std::shared_ptr<Protocol> exported() const { return exported_; }

 private:
  friend class FakeTransport<Protocol>;
  friend class FakeRemoteConnection<Protocol>;
  std::map<std::uint64_t, ErrorHandler> open_;
  std::uint64_t lastMessage_ = 0;
  std::vector<std::function<void()>> held_;  // messages sent while the service did not listen
  std::shared_ptr<Protocol> exported_;
  std::shared_ptr<ServiceConnection<Protocol>> serviceEnd_;
  std::function<void()> serviceInvalidation_;
  std::function<void()> serviceInterruption_;
  std::function<void()> clientInvalidation_;
  std::function<void()> clientInterruption_;
};

// What the two ends share. Everything but the setters of the ends runs on `queue`.
template <class Protocol>
class FakeTransport : public std::enable_shared_from_this<FakeTransport<Protocol>> {
 public:
  using Link = FakeLink<Protocol>;
  using LinkPointer = std::shared_ptr<Link>;
  using State = typename Link::State;
  using ErrorHandler = typename Link::ErrorHandler;

  explicit FakeTransport(std::shared_ptr<SerialQueue> transportQueue) : queue(std::move(transportQueue)) {}

  const std::shared_ptr<SerialQueue> queue;
  ServiceListenerDelegate<Protocol>* delegate = nullptr;
  double delay = 0.0;
  bool hangs = false;
  bool losesReplies = false;
  bool speaksProtocol = true;

  void post(std::function<void(FakeTransport&)> task) {
    queue->submit([self = this->shared_from_this(), task = std::move(task)] { task(*self); });
  }

  void startListening() {
    listening_ = true;
    for (const auto& link : std::exchange(waiting_, {})) {
      if (link->state == State::Waiting) accept(link);
    }
  }

  void resumeClient(const LinkPointer& link) {
    if (link->state != State::Idle) return;
    link->state = State::Waiting;
    if (listening_) {
      accept(link);
    } else {
      waiting_.push_back(link);
    }
  }

  // The client's own invalidate().
  void clientInvalidates(const LinkPointer& link) {
    if (link->state == State::Invalid) return;
    const auto handler = link->clientInvalidation_;
    const auto open = end(link, State::Invalid);
    tellServiceAndRelease(link);
    failAll(open, kFakeInvalid);
    if (handler) handler();
  }

  void crashService(const LinkPointer& link) {
    if (link->state != State::Live) return;
    const auto handler = link->clientInterruption_;
    const auto open = end(link, State::Interrupted);
    release(link);
    failAll(open, kFakeInterrupted);
    if (handler) handler();
  }

  void invalidateClient(const LinkPointer& link) {
    if (link->state == State::Invalid) return;
    const auto handler = link->clientInvalidation_;
    const auto open = end(link, State::Invalid);
    release(link);
    failAll(open, kFakeInvalid);
    if (handler) handler();
  }

  void dropClient(const LinkPointer& link) {
    if (link->state == State::Invalid) return;
    end(link, State::Invalid);
    tellServiceAndRelease(link);
  }

  void interruptOnServiceSide(const LinkPointer& link) {
    if (const auto handler = link->serviceInterruption_) handler();
  }

  // From any thread. `call` hands the service's object a reply of the same type as `reply`.
  template <class Call, class... Values>
  void send(const LinkPointer& link, ErrorHandler errorHandler, std::function<void(Values...)> reply,
            Call call) {
    post([link, errorHandler = std::move(errorHandler), reply = std::move(reply),
          call = std::move(call)](FakeTransport& self) {
      if (link->state == State::Interrupted) self.accept(link);
      if (link->state == State::Idle || link->state == State::Invalid)
        return fail(errorHandler, kFakeInvalid);
      const std::uint64_t message = ++link->lastMessage_;
      link->open_.emplace(message, errorHandler);
      // Weak: the link itself may hold the message until the service listens.
      auto deliver = [weakLink = std::weak_ptr(link), message, reply, call, weak = self.weak_from_this()] {
        const auto transport = weak.lock();
        const auto link = weakLink.lock();
        if (transport == nullptr || link == nullptr) return;
        if (transport->hangs || !link->open_.contains(message) || !link->exported_) return;
        ++link->delivered;
        const auto object = link->exported_;
        call(*object, transport->replyTo(link, message, reply));
      };
      if (link->state == State::Waiting) {
        link->held_.push_back(std::move(deliver));
      } else {
        self.travel(std::move(deliver));
      }
    });
  }

 private:
  class ServiceEnd final : public ServiceConnection<Protocol> {
   public:
    explicit ServiceEnd(const LinkPointer& link) : link_(link) {}

    [[nodiscard]] std::uint32_t effectiveUserIdentifier() const override {
      const auto link = link_.lock();
      return link != nullptr ? link->user : 0;
    }
    void setCodeSigningRequirement(std::string_view requirement) override {
      with("requirement", [&](Link& link) { link.serviceRequirement = requirement; });
    }
    void setExportedInterface() override {
      with("interface", [](Link&) {});
    }
    void setExportedObject(std::shared_ptr<Protocol> object) override {
      with("object", [&](Link& link) {
        link.lastExported = object;
        link.exported_ = std::move(object);
      });
    }
    void setInvalidationHandler(std::function<void()> handler) override {
      with("invalidation", [&](Link& link) { link.serviceInvalidation_ = std::move(handler); });
    }
    void setInterruptionHandler(std::function<void()> handler) override {
      with("interruption", [&](Link& link) { link.serviceInterruption_ = std::move(handler); });
    }
    void resume() override {
      with("resume", [](Link&) {});
    }

   private:
    template <class Action>
    void with(const char* name, Action action) {
      const auto link = link_.lock();
      if (link == nullptr) return;
      link->serviceCalls.emplace_back(name);
      action(*link);
    }

    std::weak_ptr<Link> link_;
  };

  static void fail(const ErrorHandler& handler, std::int64_t code) {
    if (!handler) return;
    const char* text = code == kFakeInterrupted ? "The connection to the service was interrupted."
                                                : "The connection to the service was invalidated.";
    handler({std::string(kFakeTransportDomain), code, text});
  }
  static void failAll(const std::map<std::uint64_t, ErrorHandler>& open, std::int64_t code) {
    for (const auto& [message, handler] : open) fail(handler, code);
  }

  void travel(std::function<void()> task) {
    if (delay > 0.0) {
      queue->submitAfter(delay, std::move(task));
    } else {
      queue->submit(std::move(task));
    }
  }

  void accept(const LinkPointer& link) {
    auto serviceEnd = std::make_shared<ServiceEnd>(link);
    if (delegate != nullptr && delegate->shouldAcceptNewConnection(serviceEnd)) {
      ++link->accepted;
      link->state = State::Live;
      link->serviceEnd_ = std::move(serviceEnd);
      for (auto& message : std::exchange(link->held_, {})) travel(std::move(message));
    } else {
      ++link->refused;
      invalidateClient(link);
    }
  }

  template <class... Values>
  std::function<void(Values...)> replyTo(const LinkPointer& link, std::uint64_t message,
                                         const std::function<void(Values...)>& reply) {
    // Called by the service on any of its threads, so the values are copied and taken across. Weak: the
    // exported object may keep the reply, and the link keeps that object.
    return [weakLink = std::weak_ptr(link), message, reply, weak = this->weak_from_this()](Values... values) {
      const auto transport = weak.lock();
      const auto link = weakLink.lock();
      if (transport == nullptr || link == nullptr) return;
      auto copies = std::make_tuple(std::decay_t<Values>(values)...);
      transport->post([link, message, reply, copies = std::move(copies)](FakeTransport& self) {
        if (self.losesReplies) return;
        self.travel([link, message, reply, copies] {
          if (link->open_.erase(message) != 0 && reply) std::apply(reply, copies);
        });
      });
    };
  }

  // Takes the open messages out and moves to `state`.
  std::map<std::uint64_t, ErrorHandler> end(const LinkPointer& link, State state) {
    link->state = state;
    link->held_.clear();
    if (state == State::Invalid) {
      link->clientInvalidation_ = nullptr;
      link->clientInterruption_ = nullptr;
    }
    return std::exchange(link->open_, {});
  }
  static void release(const LinkPointer& link) {
    link->serviceInvalidation_ = nullptr;
    link->serviceInterruption_ = nullptr;
    link->serviceEnd_.reset();
    // Moved out first: the object's end may look at the link.
    const auto object = std::exchange(link->exported_, nullptr);
  }
  static void tellServiceAndRelease(const LinkPointer& link) {
    if (const auto handler = std::exchange(link->serviceInvalidation_, nullptr)) handler();
    release(link);
  }

  bool listening_ = false;
  std::vector<LinkPointer> waiting_;
};

// The client's end.
template <class Protocol>
class FakeRemoteConnection final : public RemoteConnection<Protocol>,
                                   public std::enable_shared_from_this<FakeRemoteConnection<Protocol>> {
 public:
  using Transport = FakeTransport<Protocol>;
  using Link = FakeLink<Protocol>;
  using ErrorHandler = typename Link::ErrorHandler;

  FakeRemoteConnection(std::shared_ptr<Transport> transport, std::shared_ptr<Link> link)
      : transport_(std::move(transport)), link_(std::move(link)) {}
  ~FakeRemoteConnection() override {
    transport_->post([link = link_](Transport& transport) { transport.dropClient(link); });
  }
  FakeRemoteConnection(const FakeRemoteConnection&) = delete;
  FakeRemoteConnection& operator=(const FakeRemoteConnection&) = delete;

  void setRemoteObjectInterface() override { link_->clientCalls.emplace_back("interface"); }
  void setCodeSigningRequirement(std::string_view requirement) override {
    link_->clientCalls.emplace_back("requirement");
    link_->clientRequirement = requirement;
  }
  void setInvalidationHandler(std::function<void()> handler) override {
    link_->clientCalls.emplace_back("invalidation");
    link_->clientInvalidation_ = std::move(handler);
  }
  void setInterruptionHandler(std::function<void()> handler) override {
    link_->clientCalls.emplace_back("interruption");
    link_->clientInterruption_ = std::move(handler);
  }
  void resume() override {
    link_->clientCalls.emplace_back("resume");
    transport_->post([link = link_](Transport& transport) { transport.resumeClient(link); });
  }
  void invalidate() override {
    transport_->post([link = link_](Transport& transport) { transport.clientInvalidates(link); });
  }
  std::shared_ptr<Protocol> remoteObjectProxy() override {
    return remoteObjectProxyWithErrorHandler(nullptr);
  }
  std::shared_ptr<Protocol> remoteObjectProxyWithErrorHandler(ErrorHandler handler) override;

  template <class Reply, class Call>
  void send(const ErrorHandler& errorHandler, Reply reply, Call call) {
    transport_->send(link_, errorHandler, std::move(reply), std::move(call));
  }

 private:
  std::shared_ptr<Transport> transport_;
  std::shared_ptr<Link> link_;
};

// Turns calls of Protocol into messages; one specialisation for each protocol. A proxy keeps its connection
// alive.
template <class Protocol>
class FakeProxy;

template <class Protocol>
class FakeProxyBase : public Protocol {
 public:
  using Connection = FakeRemoteConnection<Protocol>;
  FakeProxyBase(std::shared_ptr<Connection> connection, typename Connection::ErrorHandler handler)
      : connection_(std::move(connection)), handler_(std::move(handler)) {}

 protected:
  template <class Reply, class Call>
  void send(Reply reply, Call call) {
    connection_->send(handler_, std::move(reply), std::move(call));
  }

 private:
  std::shared_ptr<Connection> connection_;
  typename Connection::ErrorHandler handler_;
};

template <>
class FakeProxy<MonitorAudioProtocol> final : public FakeProxyBase<MonitorAudioProtocol> {
 public:
  using FakeProxyBase::FakeProxyBase;
  void applications(ApplicationsReply reply) override {
    send(std::move(reply), [](MonitorAudioProtocol& service, ApplicationsReply answer) {
      service.applications(std::move(answer));
    });
  }
  void setGain(double gain, const Data& processes, SetGainReply reply) override {
    send(std::move(reply), [gain, processes](MonitorAudioProtocol& service, SetGainReply answer) {
      service.setGain(gain, processes, std::move(answer));
    });
  }
  void stop(StopReply reply) override {
    send(std::move(reply),
         [](MonitorAudioProtocol& service, StopReply answer) { service.stop(std::move(answer)); });
  }
};

template <>
class FakeProxy<MonitorHelperProtocol> final : public FakeProxyBase<MonitorHelperProtocol> {
 public:
  using FakeProxyBase::FakeProxyBase;
  void collect(CollectReply reply) override {
    send(std::move(reply),
         [](MonitorHelperProtocol& service, CollectReply answer) { service.collect(std::move(answer)); });
  }
};

template <class Protocol>
std::shared_ptr<Protocol> FakeRemoteConnection<Protocol>::remoteObjectProxyWithErrorHandler(
    ErrorHandler handler) {
  if (!transport_->speaksProtocol) return nullptr;
  return std::make_shared<FakeProxy<Protocol>>(this->shared_from_this(), std::move(handler));
}

// Both sides: the service's listener and the clients' factory, and what the test does to the wire between
// them.
template <class Protocol>
class FakeServiceConnections final : public ServiceListener<Protocol>,
                                     public RemoteConnectionFactory<Protocol> {
 public:
  using Link = FakeLink<Protocol>;
  using Transport = FakeTransport<Protocol>;

  explicit FakeServiceConnections(std::shared_ptr<SerialQueue> queue)
      : transport_(std::make_shared<Transport>(std::move(queue))) {}

  // The listener. resume() returns at once; clients wait for it.
  std::vector<std::string> listenerCalls;  // "requirement", "delegate", "resume"
  std::string listenerRequirement;
  int exitStatus = 0;
  void setConnectionCodeSigningRequirement(std::string_view requirement) override {
    listenerCalls.emplace_back("requirement");
    listenerRequirement = requirement;
  }
  void setDelegate(ServiceListenerDelegate<Protocol>* delegate) override {
    listenerCalls.emplace_back("delegate");
    transport_->delegate = delegate;
  }
  int resume() override {
    listenerCalls.emplace_back("resume");
    transport_->post([](Transport& transport) { transport.startListening(); });
    return exitStatus;
  }

  // The factory.
  std::uint32_t nextUser = 501;              // user id of the connections made from now on
  std::vector<std::shared_ptr<Link>> links;  // in the order they were made
  std::shared_ptr<RemoteConnection<Protocol>> makeConnection(std::string_view serviceName,
                                                             bool privileged) override {
    auto link = std::make_shared<Link>();
    link->serviceName = serviceName;
    link->privileged = privileged;
    link->user = nextUser;
    links.push_back(link);
    return std::make_shared<FakeRemoteConnection<Protocol>>(transport_, std::move(link));
  }

  // How messages travel from now on.
  void setDelay(double seconds) { transport_->delay = seconds; }          // each way
  void setHangs(bool hangs) { transport_->hangs = hangs; }                // they never reach the service
  void setLosesReplies(bool loses) { transport_->losesReplies = loses; }  // they do, its answers get lost
  void setSpeaksProtocol(bool speaks) { transport_->speaksProtocol = speaks; }  // false: proxies are null

  // The service's process dies: its object is released without a word, open messages fail, the client hears
  // of an interruption. The client's next message is accepted anew.
  void crashService(std::size_t link) { onTransport(link, &Transport::crashService); }
  // The service is gone for good: as above, but the client's connection becomes invalid.
  void invalidateClient(std::size_t link) { onTransport(link, &Transport::invalidateClient); }
  // The client's process ends: the service hears of an invalidation and lets go of its object; the client
  // hears nothing any more.
  void dropClient(std::size_t link) { onTransport(link, &Transport::dropClient); }
  // Only the service's interruption handler runs; the connection stays.
  void interruptOnServiceSide(std::size_t link) { onTransport(link, &Transport::interruptOnServiceSide); }

 private:
  void onTransport(std::size_t link, void (Transport::*action)(const std::shared_ptr<Link>&)) {
    transport_->post([link = links.at(link), action](Transport& transport) { (transport.*action)(link); });
  }

  std::shared_ptr<Transport> transport_;
};

}  // namespace monitor::fakes
