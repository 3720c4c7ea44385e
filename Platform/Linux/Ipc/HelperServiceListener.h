// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorCore/MonitorHelperProtocol.h"
#include "Platform/Linux/Ipc/BusServiceListener.h"
#include "Platform/Linux/Ipc/HelperExport.h"

namespace monitor::platform {

// The privileged helper on the system bus.
class HelperServiceListener final : public BusServiceListener<MonitorHelperProtocol, HelperExport> {
 public:
  // Everything by default except for tests, which use a bus and patience of their own.
  explicit HelperServiceListener(std::shared_ptr<MainQueue> queue, ServiceBusOptions options = defaults());
  // The system bus, and room for many users' clients at once.
  [[nodiscard]] static ServiceBusOptions defaults();
};

}  // namespace monitor::platform
