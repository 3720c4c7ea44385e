// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include "MonitorCore/MonitorHelperProtocol.h"
#include "MonitorCore/Ports/ServiceConnection.h"
#include "MonitorHelperService/HelperSession.h"
#include "MonitorHelperService/SharedCollection.h"

namespace monitor {

// Gives each client of the privileged helper a session for the user whom the transport vouches for. The
// connection owns the session it exports; a session that has gone asks for nothing any more.
class HelperDelegate final : public ServiceListenerDelegate<MonitorHelperProtocol> {
 public:
  // Of one user at a time: nobody fills the service up for everybody else.
  static constexpr std::size_t kMostSessionsOfOneUser = 16;

  explicit HelperDelegate(std::shared_ptr<SharedCollection> collection);

  // Refuses one more client of a user who has too many.
  [[nodiscard]] bool shouldAcceptNewConnection(
      const std::shared_ptr<ServiceConnection<MonitorHelperProtocol>>& connection) override;

 private:
  // Null when the user has too many.
  [[nodiscard]] std::shared_ptr<HelperSession> makeSession(std::uint32_t user);

  const std::shared_ptr<SharedCollection> collection_;
  std::mutex mutex_;
  std::vector<std::weak_ptr<HelperSession>> sessions_;  // guarded by mutex_
};

}  // namespace monitor
