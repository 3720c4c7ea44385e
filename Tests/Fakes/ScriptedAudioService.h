// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "MonitorCore/MonitorAudioProtocol.h"
#include "MonitorCore/Ports/ServiceConnection.h"

namespace monitor::fakes {

// The audio service as its clients' transport shows it. Every message stays open until the test (or
// `onMessage`) answers it or reports an error, in whatever order and as late as it likes; connections are
// interrupted and invalidated by the test. Everything happens within the calls, on the test's thread.
class ScriptedAudioService final : public RemoteConnectionFactory<MonitorAudioProtocol> {
 public:
  enum class Kind : std::uint8_t { Applications, SetGain, Stop };

  struct Message {
    Kind kind = Kind::Applications;
    std::size_t connection = 0;  // index into `connections`
    double gain = 0.0;           // SetGain
    Data processes;              // SetGain
    MonitorAudioProtocol::ApplicationsReply applicationsReply;
    MonitorAudioProtocol::SetGainReply setGainReply;
    MonitorAudioProtocol::StopReply stopReply;
    std::function<void(const RemoteError&)> errorHandler;  // empty for a plain proxy
  };

  // What was done to one connection, and its handlers.
  struct Connection {
    std::string serviceName;
    bool privileged = false;
    bool interfaceSet = false;
    std::string requirement;
    bool resumed = false;
    int invalidations = 0;
    std::function<void()> invalidationHandler;
    std::function<void()> interruptionHandler;
    std::weak_ptr<void> client;  // expired once the client let go of the connection
  };

  std::shared_ptr<RemoteConnection<MonitorAudioProtocol>> makeConnection(std::string_view serviceName,
                                                                         bool privileged) override;

  // Calls with the last handlers that were set; nothing where the connection has none.
  void interrupt(std::size_t connection) const;
  void invalidate(std::size_t connection) const;

  std::vector<std::shared_ptr<Connection>> connections;
  std::vector<std::shared_ptr<Message>> messages;  // in the order they were sent
  bool speaksProtocol = true;                      // false: proxies are null
  // Called for each message once it stands in `messages`.
  std::function<void(const std::shared_ptr<Message>&)> onMessage;
};

}  // namespace monitor::fakes
