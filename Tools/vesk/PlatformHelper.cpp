// SPDX-License-Identifier: MIT
#include "Tools/vesk/PlatformHelper.h"

#include <string_view>

#include "MonitorMac/ProcessIdentity.h"

#ifdef __APPLE__
#include "Platform/Darwin/DispatchQueues.h"
#include "Platform/Darwin/LibprocProcessTable.h"
#include "Platform/Darwin/ServiceManagementRegistry.h"
#include "Platform/Darwin/XpcConnections.h"
#else
#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Helper/SystemdRegistry.h"
#include "Platform/Linux/Ipc/BusNames.h"
#include "Platform/Linux/Ipc/RemoteConnections.h"
#include "Platform/Linux/Process/ProcessAdapters.h"
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
          // The helper itself refuses a client with the same error, and then says why.
          [](const MonitorError& error) {
            return error.domain() == platform::names::kAccessDenied &&
                   std::string_view(error.what()) != platform::names::kClientRefused;
          }};
#endif
}

std::string executableName(std::int32_t pid) {
  static const auto processes = platform::makeProcessTable();
  const std::string path = executable(*processes, pid);
  return path.substr(path.rfind('/') + 1);
}

}  // namespace monitor::vesk
