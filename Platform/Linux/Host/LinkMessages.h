// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "MonitorMac/Ports/HostStatistics.h"
#include "Platform/Linux/Base/Netlink.h"

namespace monitor::platform {

struct LinkDump : netlink::Progress {
  std::vector<InterfaceCounter> links;
};

// Reads one datagram of a netlink link dump and adds its links to `dump`. Every length is checked before it
// is believed; a link without a name or without 64-bit counters is passed over.
void readLinkMessages(std::span<const std::byte> datagram, LinkDump& dump);

}  // namespace monitor::platform
