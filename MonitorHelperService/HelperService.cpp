// SPDX-License-Identifier: MIT
#include "MonitorHelperService/HelperService.h"

#include <cstdint>
#include <utility>

#include "MonitorCore/MonitorServiceIdentity.h"
#include "MonitorMac/AdvancedCollector.h"

namespace monitor {
namespace {

SharedCollection::Collect collecting(const HelperServicePorts& ports) {
  return [&runner = ports.runner, &processes = ports.processes, &wallClock = ports.wallClock,
          tool = ports.tool, &details = ports.details](std::uint32_t owner) {
    return AdvancedCollector::sample({runner, processes, wallClock, tool, details}, owner);
  };
}

}  // namespace

int runHelper(HelperService& service, const HelperServicePorts& ports,
              const TakeHelperListener& takeListener) {
  auto collection = std::make_shared<SharedCollection>(SharedCollection::Ports{
      ports.queues.makeSerialQueue("app.vesk.monitor.helper", QualityOfService::UserInitiated),
      ports.queues.makeSerialQueue("app.vesk.monitor.helper.run", QualityOfService::Utility), ports.clock,
      ports.mayCollect, collecting(ports)});
  service.delegate = std::make_unique<HelperDelegate>(std::move(collection));
  service.listener = takeListener();
  service.listener->setConnectionCodeSigningRequirement(MonitorServiceIdentity::clientRequirement);
  service.listener->setDelegate(service.delegate.get());
  return service.listener->resume();
}

}  // namespace monitor
