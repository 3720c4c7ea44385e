// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

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

// The file name of the process's executable; empty when it is not known. One thread at a time.
[[nodiscard]] std::string executableName(std::int32_t pid);

}  // namespace monitor::vesk
