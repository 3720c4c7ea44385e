// SPDX-License-Identifier: MIT
#pragma once

#include "Platform/Linux/Power/TcpSockets.h"
#include "Platform/Linux/Process/BoundedFile.h"

namespace monitor::platform {

// The connections of the namespace this process is in, over IPv4 and IPv6. Those that end are told by the
// kernel from the moment this object is made, to root only; what it tells faster than it is fetched is lost.
class NetlinkTcpSockets final : public TcpSockets {
 public:
  NetlinkTcpSockets();

  [[nodiscard]] std::optional<std::vector<TcpSocket>> current() override;
  [[nodiscard]] std::vector<TcpSocket> ended() override;

 private:
  FileDescriptor endings_;
};

}  // namespace monitor::platform
