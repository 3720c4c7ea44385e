// SPDX-License-Identifier: MIT
#include "Platform/Linux/Helper/HelperMain.h"

#include <csignal>
#include <filesystem>
#include <string>

#include "Platform/Linux/Base/Clocks.h"
#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Helper/ActiveSessions.h"
#include "Platform/Linux/Helper/HelperProcess.h"
#include "Platform/Linux/Ipc/HelperServiceListener.h"
#include "Platform/Linux/Process/ProcessAdapters.h"
#include "Platform/Posix/PosixToolRunner.h"

namespace monitor::platform {
namespace {

// Before the first thread exists: all threads inherit the mask, so that a signal always reaches the loop that
// ends the helper in order.
void blockEndingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

// Whoever may write to this program's folder is root in any case; a search path would add others.
std::string toolBesideThisProgram() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() / kPowerMetricsTool;
}

}  // namespace

int helperMain() {
  blockEndingSignals();
  // As long as the process lives: a run of the tool may outlast the bus.
  static PosixToolRunner runner;
  static const auto processes = makeProcessTable();
  static const SystemWallClock wallClock;
  static const auto queues = makeSerialQueueFactory();
  static const MonotonicClock clock;
  return runHelperProcess({runner, *processes, wallClock, toolBesideThisProgram(), *queues, clock,
                           hasActiveLocalSession, kLinuxAdvancedDetails},
                          HelperServiceListener::defaults());
}

}  // namespace monitor::platform
