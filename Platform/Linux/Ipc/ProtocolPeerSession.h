// SPDX-License-Identifier: MIT
#pragma once

#include "Platform/Linux/Ipc/PeerTable.h"

namespace monitor::platform {

// A session that speaks one protocol.
template <class Protocol>
class ProtocolPeerSession : public PeerSession {
 public:
  [[nodiscard]] virtual Protocol& object() = 0;
};

}  // namespace monitor::platform
