// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <mutex>

#include "MonitorCore/MonitorAudioProtocol.h"
#include "MonitorCore/MonitorHelperProtocol.h"
#include "MonitorCore/Ports/ServiceConnection.h"
#include "Platform/Linux/Ipc/Bus.h"

namespace monitor::platform {

class BusClientHandle;

// Connections to the audio service over D-Bus. Refusal, the loss of the bus and a service that cannot be
// started invalidate a connection; the end of the service's process interrupts it. A connection is released
// with its last proxy and its owner's reference. Any thread.
//
// Every proxy is a MonitorAudioDiagnostics too. For callers that do not see the connection, like the owner of
// an AudioClient, the factory itself asks over the connection that it made last.
class BusAudioConnections final : public RemoteConnectionFactory<MonitorAudioProtocol>,
                                  public MonitorAudioDiagnostics {
 public:
  // By default a per-user service is sought on the session bus and a privileged one on the system bus of the
  // environment; with an address all are sought there.
  explicit BusAudioConnections(BusAddress address = {});
  [[nodiscard]] std::shared_ptr<RemoteConnection<MonitorAudioProtocol>> makeConnection(
      std::string_view serviceName, bool privileged) override;
  // Code 0 and no text also where there is no connection or no answer.
  void lastCause(LastCauseReply reply) override;

 private:
  BusAddress address_;
  std::mutex mutex_;
  std::weak_ptr<BusClientHandle> last_;  // guarded by mutex_
};

// Connections to the privileged helper, the same way.
class BusHelperConnections final : public RemoteConnectionFactory<MonitorHelperProtocol> {
 public:
  explicit BusHelperConnections(BusAddress address = {});
  [[nodiscard]] std::shared_ptr<RemoteConnection<MonitorHelperProtocol>> makeConnection(
      std::string_view serviceName, bool privileged) override;

 private:
  BusAddress address_;
};

}  // namespace monitor::platform
