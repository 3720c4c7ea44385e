// SPDX-License-Identifier: MIT
#include "MonitorAudioService/AudioService.h"

#include "MonitorCore/MonitorServiceIdentity.h"

namespace monitor {

int runService(AudioService& service, const AudioServicePorts& ports, const TakeAudioListener& takeListener) {
  service.delegate = std::make_unique<Delegate>(ports);
  service.listener = takeListener();
  service.listener->setConnectionCodeSigningRequirement(MonitorServiceIdentity::clientRequirement);
  service.listener->setDelegate(service.delegate.get());
  return service.listener->resume();
}

}  // namespace monitor
