// SPDX-License-Identifier: MIT
#include "MonitorAudioService/Delegate.h"

#include <functional>
#include <system_error>
#include <utility>

#include "MonitorAudioService/AudioSession.h"
#include "MonitorCore/MonitorServiceIdentity.h"
#include "MonitorMac/MonitorPlatform.h"

namespace monitor {
namespace {

// Null when the system has no queue to give.
std::shared_ptr<AudioSession> makeSession(const AudioServicePorts& ports) {
  try {
    return std::make_shared<AudioSession>(AudioRouterPorts{ports.hardware.openView(), ports.queues,
                                                           ports.clock, ports.processes, ports.bundles,
                                                           ports.system, ports.makeUuid, ports.silence});
  } catch (const std::system_error&) {
    return nullptr;
  }
}

// Weak: a connection that is kept after its loss does not keep the router.
std::function<void()> stopOnItsQueue(const std::shared_ptr<AudioRouter>& router) {
  return [weak = std::weak_ptr(router)] {
    const auto lost = weak.lock();
    if (!lost) return;
    lost->queue()->submit([lost] { lost->stop(); });
  };
}

}  // namespace

Delegate::Delegate(AudioServicePorts ports) : ports_(std::move(ports)) {}

bool Delegate::shouldAcceptNewConnection(
    const std::shared_ptr<ServiceConnection<MonitorAudioProtocol>>& connection) {
  if (connection->effectiveUserIdentifier() != ports_.system.userIdentifier()) return false;
  if (!MonitorPlatform::supportsAudio(ports_.system)) return false;
  // The same requirement as on the listener: checked twice on purpose.
  connection->setCodeSigningRequirement(MonitorServiceIdentity::clientRequirement);
  const auto session = makeSession(ports_);
  if (!session) return false;
  connection->setExportedInterface();
  connection->setExportedObject(session);
  connection->setInvalidationHandler(stopOnItsQueue(session->router()));
  connection->setInterruptionHandler(stopOnItsQueue(session->router()));
  connection->resume();
  return true;
}

}  // namespace monitor
