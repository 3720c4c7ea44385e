// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "Platform/Linux/Base/Netlink.h"
#include "Platform/Linux/Power/TcpSockets.h"

namespace monitor::platform {

struct TcpDump : netlink::Progress {
  std::vector<TcpSocket> sockets;
};

// Reads one datagram of the kernel's socket diagnostics and adds its connections to `dump`. Every length is
// checked before it is believed; a socket without byte counters is passed over.
void readTcpMessages(std::span<const std::byte> datagram, TcpDump& dump);

}  // namespace monitor::platform
