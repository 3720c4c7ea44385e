// SPDX-License-Identifier: MIT
#include "Platform/Linux/Ipc/AudioServiceListener.h"

#include <utility>

#include "MonitorCore/MonitorServiceIdentity.h"

namespace monitor::platform {

AudioServiceListener::AudioServiceListener(std::shared_ptr<MainQueue> queue, ServiceBusOptions options)
    : BusServiceListener(std::move(queue), std::move(options)) {}

ServiceBusOptions AudioServiceListener::defaults() {
  ServiceBusOptions options;
  options.name = MonitorServiceIdentity::audio;
  return options;
}

}  // namespace monitor::platform
