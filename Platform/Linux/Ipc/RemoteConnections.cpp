// SPDX-License-Identifier: MIT
#include "Platform/Linux/Ipc/RemoteConnections.h"

#include <optional>
#include <string>
#include <utility>

#include "Platform/Linux/Ipc/BusClient.h"
#include "Platform/Linux/Ipc/BusNames.h"

namespace monitor::platform {

// What the owner of a connection and its proxies share; the connection is released with the last of them.
class BusClientHandle {
 public:
  explicit BusClientHandle(BusClient::Target target)
      : client_(std::make_shared<BusClient>(std::move(target))) {}
  ~BusClientHandle() { client_->release(); }
  BusClientHandle(const BusClientHandle&) = delete;
  BusClientHandle& operator=(const BusClientHandle&) = delete;
  BusClient* operator->() const { return client_.get(); }

 private:
  std::shared_ptr<BusClient> client_;
};

namespace {

using ErrorHandler = std::function<void(const RemoteError&)>;
using Handle = std::shared_ptr<BusClientHandle>;

// The empty string or array stands for nothing.
std::optional<std::string> orNothing(std::string value) {
  if (value.empty()) return std::nullopt;
  return value;
}

int appendNothing(sd_bus_message* /*message*/) {
  return 0;
}

// Absurdly long answers are cut here rather than believed; what is cut no longer decodes.
constexpr std::size_t kMostAnswer = std::size_t{16} * 1024 * 1024;

// Reads the `ay data, s message` of both protocols' lists.
template <class Reply>
std::function<int(sd_bus_message*)> dataReply(Reply reply) {
  return [reply = std::move(reply)](sd_bus_message* message) {
    Data data;
    std::string text;
    int result = readData(message, kMostAnswer, data);
    if (result >= 0) result = readText(message, text);
    if (result >= 0 && reply) reply(orNothing(std::move(data)), orNothing(std::move(text)));
    return result;
  };
}

class AudioProxy final : public MonitorAudioProtocol, public MonitorAudioDiagnostics {
 public:
  AudioProxy(Handle client, ErrorHandler error) : client_(std::move(client)), error_(std::move(error)) {}

  void applications(ApplicationsReply reply) override {
    (*client_)->send(
        {names::kAudioInterface, "Applications", appendNothing, dataReply(std::move(reply)), error_});
  }
  void setGain(double gain, const Data& processes, SetGainReply reply) override {
    const auto append = [gain, processes](sd_bus_message* message) {
      const int result = sd_bus_message_append_basic(message, 'd', &gain);
      return result < 0 ? result : appendData(message, processes);
    };
    const auto read = [reply = std::move(reply)](sd_bus_message* message) {
      std::string text;
      const int result = readText(message, text);
      if (result >= 0 && reply) reply(orNothing(std::move(text)));
      return result;
    };
    (*client_)->send({names::kAudioInterface, "SetGain", append, read, error_});
  }
  void stop(StopReply reply) override {
    const auto read = [reply = std::move(reply)](sd_bus_message*) {
      if (reply) reply();
      return 0;
    };
    (*client_)->send({names::kAudioInterface, "Stop", appendNothing, read, error_});
  }
  void lastCause(LastCauseReply reply) override {
    const auto read = [reply = std::move(reply)](sd_bus_message* message) {
      std::int32_t code = 0;
      std::string text;
      int result = sd_bus_message_read_basic(message, 'i', &code);
      if (result >= 0) result = readText(message, text);
      if (result >= 0 && reply) reply(code, text);
      return result;
    };
    (*client_)->send({names::kAudioDiagnosticsInterface, "LastCause", appendNothing, read, error_});
  }

 private:
  Handle client_;
  ErrorHandler error_;
};

class HelperProxy final : public MonitorHelperProtocol {
 public:
  HelperProxy(Handle client, ErrorHandler error) : client_(std::move(client)), error_(std::move(error)) {}
  void collect(CollectReply reply) override {
    (*client_)->send(
        {names::kHelperInterface, "Collect", appendNothing, dataReply(std::move(reply)), error_});
  }

 private:
  Handle client_;
  ErrorHandler error_;
};

template <class Protocol, class Proxy>
class BusRemoteConnection final : public RemoteConnection<Protocol> {
 public:
  explicit BusRemoteConnection(Handle client) : client_(std::move(client)) {}

  void setRemoteObjectInterface() override {}  // Proxy's
  void setCodeSigningRequirement(std::string_view requirement) override { requirement_ = requirement; }
  void setInvalidationHandler(std::function<void()> handler) override {
    (*client_)->setInvalidationHandler(std::move(handler));
  }
  void setInterruptionHandler(std::function<void()> handler) override {
    (*client_)->setInterruptionHandler(std::move(handler));
  }
  void resume() override { (*client_)->resume(); }
  void invalidate() override { (*client_)->invalidate(); }
  std::shared_ptr<Protocol> remoteObjectProxy() override {
    return remoteObjectProxyWithErrorHandler(nullptr);
  }
  std::shared_ptr<Protocol> remoteObjectProxyWithErrorHandler(ErrorHandler handler) override {
    return std::make_shared<Proxy>(client_, std::move(handler));
  }

 private:
  Handle client_;
  std::string requirement_;  // carried; the bus cannot enforce it
};

BusClient::Target target(BusAddress address, std::string_view service, bool privileged, const char* path) {
  address.kind = privileged ? BusAddress::Kind::System : BusAddress::Kind::Session;
  return {std::move(address), std::string(service), path};
}

}  // namespace

BusAudioConnections::BusAudioConnections(BusAddress address) : address_(std::move(address)) {}

std::shared_ptr<RemoteConnection<MonitorAudioProtocol>> BusAudioConnections::makeConnection(
    std::string_view serviceName, bool privileged) {
  const auto client =
      std::make_shared<BusClientHandle>(target(address_, serviceName, privileged, names::kAudioPath));
  const std::lock_guard lock(mutex_);
  last_ = client;
  return std::make_shared<BusRemoteConnection<MonitorAudioProtocol, AudioProxy>>(client);
}

void BusAudioConnections::lastCause(LastCauseReply reply) {
  Handle client;
  {
    const std::lock_guard lock(mutex_);
    client = last_.lock();
  }
  if (client == nullptr) return reply(0, {});
  AudioProxy(client, [reply](const RemoteError&) { reply(0, {}); }).lastCause(reply);
}

BusHelperConnections::BusHelperConnections(BusAddress address) : address_(std::move(address)) {}

std::shared_ptr<RemoteConnection<MonitorHelperProtocol>> BusHelperConnections::makeConnection(
    std::string_view serviceName, bool privileged) {
  const auto client =
      std::make_shared<BusClientHandle>(target(address_, serviceName, privileged, names::kHelperPath));
  return std::make_shared<BusRemoteConnection<MonitorHelperProtocol, HelperProxy>>(client);
}

}  // namespace monitor::platform
