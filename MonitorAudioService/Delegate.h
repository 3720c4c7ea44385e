// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorAudioService/AudioServicePorts.h"
#include "MonitorCore/MonitorAudioProtocol.h"
#include "MonitorCore/Ports/ServiceConnection.h"

namespace monitor {

// Decides who may connect, and gives each client a session of its own. Keeps nothing of its clients: the
// connection owns the session it exports.
class Delegate final : public ServiceListenerDelegate<MonitorAudioProtocol> {
 public:
  explicit Delegate(AudioServicePorts ports);

  // Refuses, silently, a client of another user, every client on a system that is too old, and a client for
  // whom there is no queue. When a client is lost its routing stops without any call of its own.
  [[nodiscard]] bool shouldAcceptNewConnection(
      const std::shared_ptr<ServiceConnection<MonitorAudioProtocol>>& connection) override;

 private:
  const AudioServicePorts ports_;
};

}  // namespace monitor
