// SPDX-License-Identifier: MIT
#include "MonitorMac/AudioClient.h"

#include <cstdlib>
#include <limits>
#include <utility>

#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/MonitorServiceIdentity.h"
#include "MonitorMac/OneShot.h"

namespace monitor {
namespace {

using ListShot = OneShot<std::optional<std::vector<AudioApplication>>, std::optional<std::string>>;
using GainShot = OneShot<std::optional<std::string>>;

std::optional<std::vector<AudioApplication>> decodedList(const std::optional<Data>& data) {
  if (!data) return std::nullopt;
  try {
    return decodeApplications(*data);
  } catch (const json::DecodeError&) {
    return std::nullopt;
  }
}

}  // namespace

std::shared_ptr<AudioClient> AudioClient::make(RemoteConnectionFactory<MonitorAudioProtocol>& factory,
                                               std::shared_ptr<SerialQueue> mainQueue,
                                               std::int64_t firstGeneration) {
  return std::make_shared<AudioClient>(Passkey{}, factory, std::move(mainQueue), firstGeneration);
}

AudioClient::AudioClient(Passkey /*key*/, RemoteConnectionFactory<MonitorAudioProtocol>& factory,
                         std::shared_ptr<SerialQueue> mainQueue, std::int64_t firstGeneration)
    : factory_(factory), mainQueue_(std::move(mainQueue)), generation_(firstGeneration) {}

AudioClient::~AudioClient() {
  if (connection_) connection_->invalidate();
}

std::shared_ptr<AudioClient> AudioClient::Ticket::holder() const {
  auto current = client.lock();
  if (current && current->generation_ != generation) current.reset();
  return current;
}

void AudioClient::Ticket::post(std::function<void(AudioClient&)> action) const {
  const auto queue = mainQueue.lock();
  if (!queue) return;
  queue->submit([ticket = *this, action = std::move(action)] {
    if (const auto current = ticket.holder()) action(*current);
  });
}

AudioClient::Ticket AudioClient::issueTicket() {
  return {mainQueue_, weak_from_this(), generation_};
}

void AudioClient::startNewGeneration() {
  // A counter that came round could make an old handler look current.
  if (generation_ == std::numeric_limits<std::int64_t>::max()) std::abort();
  ++generation_;
}

void AudioClient::connect() {
  if (connection_) return;
  connection_ = factory_.makeConnection(MonitorServiceIdentity::audio, false);
  connection_->setRemoteObjectInterface();
  connection_->setCodeSigningRequirement(MonitorServiceIdentity::requirement(MonitorServiceIdentity::audio));
  // One handler for both: a service that crashed has lost its routes just like one that is gone.
  const std::function<void()> lost = [ticket = issueTicket()] {
    ticket.post([](AudioClient& client) { client.connectionLost(); });
  };
  connection_->setInvalidationHandler(lost);
  connection_->setInterruptionHandler(lost);
  connection_->resume();
}

void AudioClient::connectionLost() {
  startNewGeneration();
  if (const auto connection = std::exchange(connection_, nullptr)) connection->invalidate();
  // A copy, because the owner may replace the handler from within it.
  if (const auto handler = onDisconnect) handler();
}

void AudioClient::applications(ApplicationsCompletion completion) {
  connect();
  const auto shot = std::make_shared<ListShot>(std::move(completion));
  const Ticket ticket = issueTicket();
  mainQueue_->submitAfter(kRequestTimeoutSeconds, [ticket, shot] {
    if (const auto client = ticket.holder()) shot->complete(std::nullopt, std::string(kListTimeoutText));
  });
  const auto proxy = connection_->remoteObjectProxyWithErrorHandler([ticket, shot](const RemoteError& error) {
    ticket.post([shot, text = error.text](AudioClient&) { shot->complete(std::nullopt, text); });
  });
  if (!proxy) return;
  proxy->applications(
      [ticket, shot](const std::optional<Data>& data, const std::optional<std::string>& message) {
        ticket.post([shot, data, message](AudioClient&) { shot->complete(decodedList(data), message); });
      });
}

void AudioClient::setGain(double gain, const AudioApplication& app, SetGainCompletion completion) {
  connect();
  const Data processes = encodeProcessKeys(app.processes);
  const auto shot = std::make_shared<GainShot>(std::move(completion));
  const Ticket ticket = issueTicket();
  mainQueue_->submitAfter(kRequestTimeoutSeconds, [ticket, shot] {
    const auto client = ticket.holder();
    if (client && shot->complete(std::string(kGainTimeoutText))) client->stop();
  });
  const auto proxy = connection_->remoteObjectProxyWithErrorHandler([ticket, shot](const RemoteError& error) {
    ticket.post([shot, text = error.text](AudioClient&) { shot->complete(text); });
  });
  if (!proxy) return;
  proxy->setGain(gain, processes, [ticket, shot](const std::optional<std::string>& message) {
    ticket.post([shot, message](AudioClient&) { shot->complete(message); });
  });
}

void AudioClient::stop() {
  startNewGeneration();
  const auto connection = std::exchange(connection_, nullptr);
  if (!connection) return;
  if (const auto proxy = connection->remoteObjectProxy()) proxy->stop([] {});
  // The connection is kept by the task, so that the service gets the stop even when the client is released.
  mainQueue_->submitAfter(kInvalidationDelaySeconds, [connection] { connection->invalidate(); });
}

}  // namespace monitor
