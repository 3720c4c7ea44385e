// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorCore/MonitorAudioProtocol.h"
#include "Platform/Linux/Ipc/Bus.h"
#include "Platform/Linux/Ipc/PeerTable.h"

namespace monitor::platform {

// A session that speaks the audio service's protocol.
class AudioPeerSession : public PeerSession {
 public:
  [[nodiscard]] virtual MonitorAudioProtocol& object() = 0;
};

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
