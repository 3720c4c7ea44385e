// SPDX-License-Identifier: MIT
#pragma once

#include "MonitorCore/MonitorAudioProtocol.h"
#include "Platform/Linux/Ipc/Bus.h"
#include "Platform/Linux/Ipc/PeerTable.h"
#include "Platform/Linux/Ipc/ProtocolPeerSession.h"

namespace monitor::platform {

using AudioPeerSession = ProtocolPeerSession<MonitorAudioProtocol>;

// The audio service's object on the bus: the two interfaces, each method decoded and handed to the caller's
// session. The bus's thread only.
class AudioExport {
 public:
  // The sessions of `peers` are AudioPeerSessions. Both outlive the export. std::system_error when the bus
  // refuses.
  AudioExport(sd_bus* bus, PeerTable& peers);

 private:
  Slot protocol_;
  Slot diagnostics_;
};

}  // namespace monitor::platform
