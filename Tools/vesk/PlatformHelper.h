// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorCore/MonitorHelperProtocol.h"
#include "MonitorCore/Ports/SerialQueue.h"
#include "MonitorCore/Ports/ServiceConnection.h"
#include "MonitorMac/Ports/DaemonRegistry.h"

namespace monitor::vesk {

// How this system reaches the optional helper: its connections, its register of daemons, and a queue to use
// both on.
struct HelperPorts {
  std::shared_ptr<RemoteConnectionFactory<MonitorHelperProtocol>> connections;
  std::shared_ptr<DaemonRegistry> registry;
  std::shared_ptr<SerialQueue> queue;
};

// std::system_error when the kernel has no thread to give.
[[nodiscard]] HelperPorts makeHelperPorts();

}  // namespace monitor::vesk
