// SPDX-License-Identifier: MIT
#include "MonitorMac/AdvancedClient.h"

#include <cstdlib>
#include <limits>
#include <string>
#include <utility>

#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/MonitorServiceIdentity.h"
#include "MonitorMac/OneShot.h"

namespace monitor {
namespace {

using Result = AdvancedClient::Result;
using SampleShot = OneShot<const Result&>;

MonitorError noReadings(const std::optional<std::string>& message) {
  return {MonitorError::kMonitorDomain, MonitorError::kNoReadings,
          message.value_or(std::string(AdvancedClient::kNoReadingsText))};
}

Result answer(const std::optional<Data>& data, const std::optional<std::string>& message) {
  if (!data) return noReadings(message);
  try {
    return decodeAdvancedSample(*data);
  } catch (const json::DecodeError&) {
    return noReadings(message);
  }
}

}  // namespace

std::shared_ptr<AdvancedClient> AdvancedClient::make(RemoteConnectionFactory<MonitorHelperProtocol>& factory,
                                                     DaemonRegistry& registry,
                                                     std::shared_ptr<SerialQueue> mainQueue,
                                                     std::int64_t firstGeneration) {
  return std::make_shared<AdvancedClient>(Passkey{}, factory, registry, std::move(mainQueue),
                                          firstGeneration);
}

AdvancedClient::AdvancedClient(Passkey /*key*/, RemoteConnectionFactory<MonitorHelperProtocol>& factory,
                               DaemonRegistry& registry, std::shared_ptr<SerialQueue> mainQueue,
                               std::int64_t firstGeneration)
    : factory_(factory),
      registry_(registry),
      mainQueue_(std::move(mainQueue)),
      generation_(firstGeneration) {}

AdvancedClient::~AdvancedClient() {
  if (connection_) connection_->invalidate();
}

void AdvancedClient::startNewGeneration() {
  // A counter that came round could make an old reply look current.
  if (generation_ == std::numeric_limits<std::int64_t>::max()) std::abort();
  ++generation_;
}

void AdvancedClient::refreshStatus(StatusCompletion completion) {
  const std::int64_t generation = ++statusGeneration_;
  registry_.status(MonitorServiceIdentity::helperPlist,
                   [queue = mainQueue_, weak = weak_from_this(), generation,
                    completion = std::move(completion)](DaemonStatus status) {
                     queue->submit([weak, generation, completion, status] {
                       const auto client = weak.lock();
                       if (client && client->statusGeneration_ == generation) client->status_ = status;
                       if (completion) completion(status);
                     });
                   });
}

void AdvancedClient::registerDaemon(ChangeCompletion completion) {
  auto start = [this, completion = std::move(completion)] {
    registry_.registerDaemon(MonitorServiceIdentity::helperPlist,
                             [queue = mainQueue_, completion](const std::optional<MonitorError>& error) {
                               queue->submit([completion, error] {
                                 if (completion) completion(error);
                               });
                             });
  };
  // Registering while the old registration is still being taken back would lose one of the two.
  if (removals_ > 0) {
    afterRemoval_.push_back(std::move(start));
  } else {
    start();
  }
}

void AdvancedClient::unregisterDaemon(ChangeCompletion completion) {
  ++removals_;
  registry_.unregisterDaemon(MonitorServiceIdentity::helperPlist,
                             [queue = mainQueue_, weak = weak_from_this(),
                              completion = std::move(completion)](const std::optional<MonitorError>& error) {
                               queue->submit([weak, completion, error] {
                                 if (const auto client = weak.lock()) client->removalEnded();
                                 if (completion) completion(error);
                               });
                             });
}

void AdvancedClient::removalEnded() {
  if (--removals_ > 0) return;
  for (const auto& start : std::exchange(afterRemoval_, {})) start();
}

void AdvancedClient::connect() {
  if (connection_) return;
  connection_ = factory_.makeConnection(MonitorServiceIdentity::helper, true);
  connection_->setRemoteObjectInterface();
  connection_->setCodeSigningRequirement(MonitorServiceIdentity::requirement(MonitorServiceIdentity::helper));
  connection_->setInvalidationHandler(
      [queue = mainQueue_, weak = weak_from_this(), generation = generation_] {
        queue->submit([weak, generation] {
          const auto client = weak.lock();
          if (client && client->generation_ == generation) client->disconnect();
        });
      });
  connection_->resume();
}

void AdvancedClient::disconnect() {
  startNewGeneration();
  if (const auto connection = std::exchange(connection_, nullptr)) connection->invalidate();
}

void AdvancedClient::sample(SampleCompletion completion) {
  if (status_ != DaemonStatus::Enabled) {
    completion(MonitorError(MonitorError::kCocoaDomain, MonitorError::kConnectionInvalid,
                            "The optional helper is not enabled."));
    return;
  }
  connect();
  const auto shot = std::make_shared<SampleShot>(std::move(completion));
  mainQueue_->submitAfter(kTimeoutSeconds, [shot] { shot->complete(noReadings(std::nullopt)); });
  const auto proxy =
      connection_->remoteObjectProxyWithErrorHandler([queue = mainQueue_, shot](const RemoteError& error) {
        queue->submit([shot, error] { shot->complete(MonitorError(error.domain, error.code, error.text)); });
      });
  // A peer that does not speak the protocol never answers: the time-out speaks for it.
  if (!proxy) return;
  proxy->collect([queue = mainQueue_, shot, weak = weak_from_this(), generation = generation_](
                     const std::optional<Data>& data, const std::optional<std::string>& message) {
    queue->submit([shot, weak, generation, data, message] {
      const auto client = weak.lock();
      const bool current = client && client->generation_ == generation;
      shot->complete(current ? answer(data, message) : noReadings(std::nullopt));
    });
  });
}

}  // namespace monitor
