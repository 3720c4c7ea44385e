// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>

#include "MonitorCore/MonitorError.h"
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
  // Whether an error says that the system lets this user have nothing; by default none does.
  std::function<bool(const MonitorError& error)> meansRefused = [](const MonitorError&) { return false; };
};

// std::system_error when the kernel has no thread to give.
[[nodiscard]] HelperPorts makeHelperPorts();

}  // namespace monitor::vesk
