// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <span>

#include "Platform/Linux/Base/Netlink.h"
#include "Platform/Linux/Process/ListeningSockets.h"

namespace monitor::platform {

struct SocketDump : netlink::Progress {
  ListeningSockets sockets;
};

// Reads one datagram of a dump of listening TCP sockets and adds what it lists to `dump`. Every length is
// checked before it is believed.
void readSocketMessages(std::span<const std::byte> datagram, SocketDump& dump);

// The listening TCP sockets of this process's network namespace, IPv4 and IPv6, by the kernel's socket
// diagnosis. Nothing when the kernel or a sandbox refuses it. Thread-safe.
[[nodiscard]] std::optional<ListeningSockets> diagnoseListeningSockets();

}  // namespace monitor::platform
