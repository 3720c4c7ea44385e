// SPDX-License-Identifier: MIT
#include "MonitorAudioService/AudioSession.h"

#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "MonitorCore/AudioApplication.h"
#include "MonitorCore/Json/StrictJson.h"

namespace monitor {
namespace {

void replyWithApplications(AudioRouter& router, const MonitorAudioProtocol::ApplicationsReply& reply) {
  std::optional<Data> data;
  std::optional<std::string> message;
  try {
    auto listing = router.applications();
    data = encodeApplications(listing.applications);
    message = std::move(listing.message);
  } catch (const std::exception& error) {
    message = error.what();
  }
  reply(data, message);
}

void replyToGain(AudioRouter& router, double gain, const std::vector<ProcessKey>& keys,
                 const MonitorAudioProtocol::SetGainReply& reply) {
  std::optional<std::string> refusal;
  try {
    router.setGain(gain, keys);
  } catch (const std::exception& error) {
    refusal = error.what();
  }
  reply(refusal);
}

// The size is checked before a byte is looked at.
std::optional<std::vector<ProcessKey>> decodeSelection(const Data& processes) {
  if (processes.size() > AudioSession::kLargestSelectionBytes) return std::nullopt;
  try {
    return decodeProcessKeys(processes);
  } catch (const json::DecodeError&) {
    return std::nullopt;
  }
}

}  // namespace

AudioSession::AudioSession(AudioRouterPorts ports) : router_(AudioRouter::make(std::move(ports))) {}

void AudioSession::applications(ApplicationsReply reply) {
  router_->queue()->submit(
      [router = router_, reply = std::move(reply)] { replyWithApplications(*router, reply); });
}

void AudioSession::setGain(double gain, const Data& processes, SetGainReply reply) {
  auto keys = decodeSelection(processes);
  if (!keys) {
    reply(std::string(kInvalidSelectionText));
    return;
  }
  router_->queue()->submit([router = router_, gain, keys = std::move(*keys), reply = std::move(reply)] {
    replyToGain(*router, gain, keys, reply);
  });
}

void AudioSession::stop(StopReply reply) {
  // Where there is nothing to stop, waking the queue's thread would be most of the work.
  bool stopped = false;
  const bool idle = router_->queue()->runIfIdle([&] {
    if (router_->isRouting()) return;
    router_->stop();
    reply();
    stopped = true;
  });
  if (idle && stopped) return;
  router_->queue()->submit([router = router_, reply = std::move(reply)] {
    router->stop();
    reply();
  });
}

void AudioSession::lastCause(LastCauseReply reply) {
  router_->queue()->submit([router = router_, reply = std::move(reply)] {
    const AudioFailure& cause = router->lastCause();
    reply(cause.code, cause.text);
  });
}

}  // namespace monitor
