// SPDX-License-Identifier: MIT
// The privileged helper's process on macOS: a launch daemon that the system starts, as root, when a client asks for its
// Mach service.
#include <memory>
#include <string>

#include "MonitorCore/MonitorServiceIdentity.h"
#include "MonitorHelperService/HelperService.h"
#include "MonitorMac/AdvancedCollector.h"
#include "Platform/Darwin/Clocks.h"
#include "Platform/Darwin/DispatchQueues.h"
#include "Platform/Darwin/LibprocProcessTable.h"
#include "Platform/Darwin/XpcConnections.h"
#include "Platform/Posix/PosixToolRunner.h"

namespace {

// Lives as long as the process: the listener holds its delegate weakly, and both are needed for ever.
monitor::HelperService service;

// Who connects was checked by then: the connection demands the monitor's signature, and its user is the one whose
// processes are told apart.
bool everyAcceptedUser(std::uint32_t /*user*/) { return true; }

}  // namespace

int main() {
  using namespace monitor::platform;
  static PosixToolRunner runner;
  static const auto processes = makeProcessTable();
  static const auto wallClock = makeWallClock();
  static const auto queues = makeSerialQueueFactory();
  static const auto clock = makeMonotonicClock();
  return monitor::runHelper(
      service,
      {runner, *processes, *wallClock, std::string(monitor::AdvancedCollector::kMacTool), *queues, *clock,
       everyAcceptedUser, monitor::kMacAdvancedDetails},
      []() -> std::shared_ptr<monitor::ServiceListener<monitor::MonitorHelperProtocol>> {
        return makeHelperServiceListener(monitor::MonitorServiceIdentity::helper);
      });
}
