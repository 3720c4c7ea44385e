// SPDX-License-Identifier: MIT
#include "Tests/Fakes/ScriptedAudioService.h"

#include <utility>

namespace monitor::fakes {
namespace {

using Service = ScriptedAudioService;
using ErrorHandler = RemoteConnection<MonitorAudioProtocol>::ErrorHandler;

class Proxy final : public MonitorAudioProtocol {
 public:
  Proxy(Service& service, std::size_t connection, ErrorHandler errorHandler)
      : service_(service), connection_(connection), errorHandler_(std::move(errorHandler)) {}

  void applications(ApplicationsReply reply) override {
    const auto message = newMessage(Service::Kind::Applications);
    message->applicationsReply = std::move(reply);
    send(message);
  }
  void setGain(double gain, const Data& processes, SetGainReply reply) override {
    const auto message = newMessage(Service::Kind::SetGain);
    message->gain = gain;
    message->processes = processes;
    message->setGainReply = std::move(reply);
    send(message);
  }
  void stop(StopReply reply) override {
    const auto message = newMessage(Service::Kind::Stop);
    message->stopReply = std::move(reply);
    send(message);
  }

 private:
  [[nodiscard]] std::shared_ptr<Service::Message> newMessage(Service::Kind kind) const {
    auto message = std::make_shared<Service::Message>();
    message->kind = kind;
    message->connection = connection_;
    message->errorHandler = errorHandler_;
    return message;
  }
  void send(const std::shared_ptr<Service::Message>& message) {
    service_.messages.push_back(message);
    if (service_.onMessage) service_.onMessage(message);
  }

  Service& service_;
  std::size_t connection_;
  ErrorHandler errorHandler_;
};

class ScriptedConnection final : public RemoteConnection<MonitorAudioProtocol> {
 public:
  ScriptedConnection(Service& service, std::size_t index, std::shared_ptr<Service::Connection> record)
      : service_(service), index_(index), record_(std::move(record)) {}

  void setRemoteObjectInterface() override { record_->interfaceSet = true; }
  void setCodeSigningRequirement(std::string_view requirement) override {
    record_->requirement = requirement;
  }
  void setInvalidationHandler(std::function<void()> handler) override {
    record_->invalidationHandler = std::move(handler);
  }
  void setInterruptionHandler(std::function<void()> handler) override {
    record_->interruptionHandler = std::move(handler);
  }
  void resume() override { record_->resumed = true; }
  void invalidate() override {
    ++record_->invalidations;
    // As the transports do: the handler runs once, also when it is the client that invalidates.
    if (const auto handler = std::exchange(record_->invalidationHandler, nullptr)) handler();
  }
  std::shared_ptr<MonitorAudioProtocol> remoteObjectProxy() override {
    return remoteObjectProxyWithErrorHandler(nullptr);
  }
  std::shared_ptr<MonitorAudioProtocol> remoteObjectProxyWithErrorHandler(ErrorHandler handler) override {
    if (!service_.speaksProtocol) return nullptr;
    return std::make_shared<Proxy>(service_, index_, std::move(handler));
  }

 private:
  Service& service_;
  std::size_t index_;
  std::shared_ptr<Service::Connection> record_;
};

}  // namespace

std::shared_ptr<RemoteConnection<MonitorAudioProtocol>> ScriptedAudioService::makeConnection(
    std::string_view serviceName, bool privileged) {
  auto record = std::make_shared<Connection>();
  record->serviceName = serviceName;
  record->privileged = privileged;
  auto connection = std::make_shared<ScriptedConnection>(*this, connections.size(), record);
  record->client = connection;
  connections.push_back(std::move(record));
  return connection;
}

void ScriptedAudioService::interrupt(std::size_t connection) const {
  if (const auto handler = connections.at(connection)->interruptionHandler) handler();
}

void ScriptedAudioService::invalidate(std::size_t connection) const {
  if (const auto handler = connections.at(connection)->invalidationHandler) handler();
}

}  // namespace monitor::fakes
