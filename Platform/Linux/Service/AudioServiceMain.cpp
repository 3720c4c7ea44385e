// SPDX-License-Identifier: MIT
#include "Platform/Linux/Service/AudioServiceMain.h"

#include <csignal>

#include "Platform/Linux/Audio/AudioHardwareProvider.h"
#include "Platform/Linux/Base/Clocks.h"
#include "Platform/Linux/Base/LinuxSystemInformation.h"
#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Base/RandomUuid.h"
#include "Platform/Linux/Ipc/AudioServiceListener.h"
#include "Platform/Linux/Process/ProcessAdapters.h"
#include "Platform/Linux/Service/ServiceProcess.h"

namespace monitor::platform {
namespace {

// Before the audio connection's threads exist: they inherit the mask, so that a signal always reaches the
// loop that ends the service in order.
void blockEndingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace

int audioServiceMain() {
  blockEndingSignals();
  const auto bundles = makeApplicationBundles();
  const auto processes = makeProcessTable();
  const auto hardware = makeAudioHardwareProvider(bundles);
  const auto queues = makeSerialQueueFactory();
  const auto system = makeSystemInformation();
  const MonotonicClock clock;
  return runServiceProcess({*hardware, *queues, clock, *processes, *bundles, *system, randomUuid},
                           AudioServiceListener::defaults());
}

}  // namespace monitor::platform
