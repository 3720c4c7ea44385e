// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>

#include "MonitorAudioService/AudioServicePorts.h"
#include "MonitorAudioService/Delegate.h"
#include "MonitorCore/MonitorAudioProtocol.h"
#include "MonitorCore/Ports/ServiceConnection.h"

namespace monitor {

// What lives as long as the service's process. main() keeps it in a static.
struct AudioService {
  std::unique_ptr<Delegate> delegate;
  std::shared_ptr<ServiceListener<MonitorAudioProtocol>> listener;
};

// Gives the process's one listener.
using TakeAudioListener = std::function<std::shared_ptr<ServiceListener<MonitorAudioProtocol>>()>;

// The service's entry: makes the delegate, takes the listener, demands the client's signature, and serves.
// Returns where the listener does, with its exit status.
int runService(AudioService& service, const AudioServicePorts& ports, const TakeAudioListener& takeListener);

}  // namespace monitor
