// SPDX-License-Identifier: MIT
#pragma once

#include "MonitorCore/MonitorHelperProtocol.h"
#include "Platform/Linux/Ipc/Bus.h"
#include "Platform/Linux/Ipc/PeerTable.h"
#include "Platform/Linux/Ipc/ProtocolPeerSession.h"

namespace monitor::platform {

using HelperPeerSession = ProtocolPeerSession<MonitorHelperProtocol>;

// The privileged helper's object on the bus. The bus's thread only.
class HelperExport {
 public:
  // The sessions of `peers` are HelperPeerSessions. Both outlive the export. std::system_error when the bus
  // refuses.
  HelperExport(sd_bus* bus, PeerTable& peers);

 private:
  Slot protocol_;
};

}  // namespace monitor::platform
