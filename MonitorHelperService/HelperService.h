// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "MonitorCore/AdvancedDetails.h"
#include "MonitorCore/MonitorHelperProtocol.h"
#include "MonitorCore/Ports/ProcessTable.h"
#include "MonitorCore/Ports/SerialQueue.h"
#include "MonitorCore/Ports/ServiceConnection.h"
#include "MonitorCore/Ports/Time.h"
#include "MonitorHelperService/HelperDelegate.h"
#include "MonitorHelperService/SharedCollection.h"
#include "MonitorMac/Ports/ToolRunner.h"

namespace monitor {

// The platform as the privileged helper needs it. Everything outlives the process's last run of the tool;
// runner and processes are used on one thread of the helper's own.
struct HelperServicePorts {
  ToolRunner& runner;
  ProcessTable& processes;
  const WallClock& wallClock;
  std::string tool;  // path of the power-metrics tool
  SerialQueueFactory& queues;
  const Clock& clock;  // monotonic; stands still during suspend
  SharedCollection::MayCollect mayCollect;
  const AdvancedDetails& details = kMacAdvancedDetails;  // of the tool's platform
};

// What lives as long as the helper's process. main() keeps it in a static.
struct HelperService {
  std::unique_ptr<HelperDelegate> delegate;
  std::shared_ptr<ServiceListener<MonitorHelperProtocol>> listener;
};

// Gives the process's one listener.
using TakeHelperListener = std::function<std::shared_ptr<ServiceListener<MonitorHelperProtocol>>()>;

// The helper's entry: makes schedule and delegate, takes the listener, demands the client's signature, and
// serves. Returns where the listener does, with its exit status. What the factory of queues throws.
int runHelper(HelperService& service, const HelperServicePorts& ports,
              const TakeHelperListener& takeListener);

}  // namespace monitor
