// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorCore/MonitorAudioProtocol.h"
#include "Platform/Linux/Ipc/AudioExport.h"
#include "Platform/Linux/Ipc/BusServiceListener.h"

namespace monitor::platform {

// The audio service on the session bus.
class AudioServiceListener final : public BusServiceListener<MonitorAudioProtocol, AudioExport> {
 public:
  // Everything by default except for tests, which use a bus, limits and patience of their own.
  explicit AudioServiceListener(std::shared_ptr<MainQueue> queue, ServiceBusOptions options = defaults());
  [[nodiscard]] static ServiceBusOptions defaults();
};

}  // namespace monitor::platform
