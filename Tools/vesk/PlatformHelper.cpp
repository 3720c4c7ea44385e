// SPDX-License-Identifier: MIT
#include "Tools/vesk/PlatformHelper.h"

#ifdef __APPLE__
#include "Platform/Darwin/DispatchQueues.h"
#include "Platform/Darwin/ServiceManagementRegistry.h"
#include "Platform/Darwin/XpcConnections.h"
#else
#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Helper/SystemdRegistry.h"
#include "Platform/Linux/Ipc/BusNames.h"
#include "Platform/Linux/Ipc/RemoteConnections.h"
#endif

namespace monitor::vesk {

HelperPorts makeHelperPorts() {
  auto queue =
      platform::makeSerialQueueFactory()->makeSerialQueue("app.vesk.helper", QualityOfService::Utility);
#ifdef __APPLE__
  return {platform::makeHelperConnectionFactory(), platform::makeDaemonRegistry(), std::move(queue)};
#else
  return {std::make_shared<platform::BusHelperConnections>(), std::make_shared<platform::SystemdRegistry>(),
          std::move(queue),
          [](const MonitorError& error) { return error.domain() == platform::names::kAccessDenied; }};
#endif
}

}  // namespace monitor::vesk
