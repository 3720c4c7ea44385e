// SPDX-License-Identifier: MIT
// The audio service's process on macOS: an XPC service, one instance per client application and user session.
#import <Foundation/Foundation.h>

#include <memory>

#include "MonitorAudioService/AudioService.h"
#include "Platform/Darwin/BundleApplications.h"
#include "Platform/Darwin/Clocks.h"
#include "Platform/Darwin/CoreAudioHardware.h"
#include "Platform/Darwin/DispatchQueues.h"
#include "Platform/Darwin/LibprocProcessTable.h"
#include "Platform/Darwin/Text.h"
#include "Platform/Darwin/XpcConnections.h"

namespace {

// Lives as long as the process: the listener holds its delegate weakly, and both are needed for ever.
monitor::AudioService service;

std::string randomUuid() { return monitor::platform::plainText([NSUUID UUID].UUIDString); }

}  // namespace

int main() {
  using namespace monitor::platform;
  static const auto hardware = makeAudioHardwareProvider();
  static const auto queues = makeSerialQueueFactory();
  static const auto clock = makeMonotonicClock();
  static const auto processes = makeProcessTable();
  static const auto bundles = makeApplicationBundles();
  static const auto system = makeSystemInformation();
  // A denied permission is silence here, not an error.
  static monitor::SilenceWatch silence;
  return monitor::runService(
      service, {*hardware, *queues, *clock, *processes, *bundles, *system, randomUuid, &silence},
      []() -> std::shared_ptr<monitor::ServiceListener<monitor::MonitorAudioProtocol>> {
        return makeAudioServiceListener();
      });
}
