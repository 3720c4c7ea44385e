// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace monitor {

// The service's end of one client's connection. `Protocol` is the exported interface (MonitorAudioProtocol, …).
// Configured inside the accept hook, then resumed. Handlers run on a thread of the transport.
template <class Protocol>
class ServiceConnection {
 public:
  virtual ~ServiceConnection() = default;
  // User id of the peer as the transport vouches for it.
  [[nodiscard]] virtual std::uint32_t effectiveUserIdentifier() const = 0;
  // What the peer must be signed as. Carried everywhere, enforced where the platform signs code.
  virtual void setCodeSigningRequirement(std::string_view requirement) = 0;
  virtual void setExportedInterface() = 0;  // the interface of Protocol
  virtual void setExportedObject(std::shared_ptr<Protocol> object) = 0;
  // The peer is gone for good.
  virtual void setInvalidationHandler(std::function<void()> handler) = 0;
  // The peer died or the transport broke; the connection may or may not come back.
  virtual void setInterruptionHandler(std::function<void()> handler) = 0;
  virtual void resume() = 0;
};

template <class Protocol>
class ServiceListenerDelegate {
 public:
  virtual ~ServiceListenerDelegate() = default;
  // Configures and resumes the connection and returns true, or returns false having touched nothing.
  [[nodiscard]] virtual bool shouldAcceptNewConnection(const std::shared_ptr<ServiceConnection<Protocol>>& connection) = 0;
};

template <class Protocol>
class ServiceListener {
 public:
  virtual ~ServiceListener() = default;
  virtual void setConnectionCodeSigningRequirement(std::string_view requirement) = 0;
  // Not owned; outlives the listener.
  virtual void setDelegate(ServiceListenerDelegate<Protocol>* delegate) = 0;
  // Serves connections. Returns only where the platform lets a service end by itself (idle, signal, lost bus): the
  // process's exit status.
  virtual int resume() = 0;
};

// Why a message could not be delivered or answered.
struct RemoteError {
  std::string domain;  // the transport's own error domain or name
  std::int64_t code = 0;
  std::string text;  // localised description
};

// A client's end of a connection to one service. Configured, then resumed. Handlers and replies run on a thread of
// the transport; callers forward them to their own queue.
//
// Exactly one of reply and error handler is called for each message sent through a proxy with an error handler.
// After invalidate() nothing is sent; pending messages get their error handler; the invalidation handler runs once.
template <class Protocol>
class RemoteConnection {
 public:
  using ErrorHandler = std::function<void(const RemoteError&)>;

  virtual ~RemoteConnection() = default;
  virtual void setRemoteObjectInterface() = 0;  // the interface of Protocol
  virtual void setCodeSigningRequirement(std::string_view requirement) = 0;
  virtual void setInvalidationHandler(std::function<void()> handler) = 0;
  virtual void setInterruptionHandler(std::function<void()> handler) = 0;
  virtual void resume() = 0;
  virtual void invalidate() = 0;
  // Null when the peer does not speak Protocol.
  [[nodiscard]] virtual std::shared_ptr<Protocol> remoteObjectProxy() = 0;
  [[nodiscard]] virtual std::shared_ptr<Protocol> remoteObjectProxyWithErrorHandler(ErrorHandler handler) = 0;
};

// Makes an unconfigured connection to the named service (a per-user service, or a privileged daemon where
// `privileged`).
template <class Protocol>
class RemoteConnectionFactory {
 public:
  virtual ~RemoteConnectionFactory() = default;
  [[nodiscard]] virtual std::shared_ptr<RemoteConnection<Protocol>> makeConnection(std::string_view serviceName,
                                                                                   bool privileged) = 0;
};

}  // namespace monitor
