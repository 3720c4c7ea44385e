// SPDX-License-Identifier: MIT
#pragma once

#include "MonitorAudioService/AudioServicePorts.h"
#include "Platform/Linux/Ipc/ServiceBus.h"

namespace monitor::platform {

// The life of the audio service's process, called once, by main(), before any other thread exists: serves on
// the calling thread until the service is idle, is told to end (SIGTERM, SIGINT, SIGHUP) or loses the bus;
// then waits until every router has given normal playback back. The exit status is 0 except when the bus is
// lost or cannot be had.
[[nodiscard]] int runServiceProcess(const AudioServicePorts& ports, const ServiceBusOptions& options);

}  // namespace monitor::platform
