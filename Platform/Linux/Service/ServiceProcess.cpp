// SPDX-License-Identifier: MIT
#include "Platform/Linux/Service/ServiceProcess.h"

#include <csignal>
#include <cstdio>
#include <memory>

#include "MonitorAudioService/AudioService.h"
#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Ipc/AudioServiceListener.h"

namespace monitor::platform {
namespace {

// A router that is taking its routes down needs some calls of the audio system, of a second at most each.
constexpr double kLastRoutersSeconds = 5.0;

}  // namespace

int runServiceProcess(const AudioServicePorts& ports, const ServiceBusOptions& options) {
  // As long as the process lives.
  static AudioService service;
  static const auto queue = std::make_shared<MainQueue>();
  static const auto listener = std::make_shared<AudioServiceListener>(queue, options);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) queue->handleSignal(signal, [] { listener->stop(); });
  const auto queuesBefore = liveSerialQueues();
  const int status = runService(service, ports, [] { return listener; });
  if (!waitForSerialQueues(queuesBefore, kLastRoutersSeconds)) {
    std::fprintf(stderr, "Some routes are still being taken down; the audio server will finish that.\n");
  }
  return status;
}

}  // namespace monitor::platform
