// SPDX-License-Identifier: MIT
#pragma once

#include "MonitorHelperService/HelperService.h"
#include "Platform/Linux/Ipc/ServiceBus.h"

namespace monitor::platform {

// The life of the privileged helper's process, called once, by main(), before any other thread exists: serves
// on the calling thread until the helper is idle, is told to end (SIGTERM, SIGINT, SIGHUP) or loses the bus;
// then waits for a run of the tool that is under way. The exit status is 0 except when the bus is lost or
// cannot be had.
[[nodiscard]] int runHelperProcess(const HelperServicePorts& ports, const ServiceBusOptions& options);

}  // namespace monitor::platform
