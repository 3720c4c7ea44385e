// SPDX-License-Identifier: MIT
#include "Platform/Linux/Helper/HelperProcess.h"

#include <csignal>
#include <cstdio>
#include <memory>

#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Ipc/HelperServiceListener.h"

namespace monitor::platform {
namespace {

// A run of the tool may take its two time-outs and two seconds more for each.
constexpr double kLastRunSeconds = 11.0;

}  // namespace

int runHelperProcess(const HelperServicePorts& ports, const ServiceBusOptions& options) {
  // As long as the process lives.
  static HelperService service;
  static const auto queue = std::make_shared<MainQueue>();
  static const auto listener = std::make_shared<HelperServiceListener>(queue, options);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) queue->handleSignal(signal, [] { listener->stop(); });
  const auto queuesBefore = liveSerialQueues();
  const int status = runHelper(service, ports, [] { return listener; });
  service.delegate.reset();
  if (!waitForSerialQueues(queuesBefore, kLastRunSeconds)) {
    std::fprintf(stderr, "The power-metrics tool is still running.\n");
  }
  return status;
}

}  // namespace monitor::platform
