// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/ProcessAdapters.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "Platform/Linux/Base/Clocks.h"
#include "Platform/Linux/Process/BootTime.h"
#include "Platform/Linux/Process/DesktopApplicationBundles.h"
#include "Platform/Linux/Process/DesktopEntries.h"
#include "Platform/Linux/Process/DesktopEntry.h"
#include "Platform/Linux/Process/ProcfsProcessTable.h"
#include "Platform/Linux/Process/SampledProcessTable.h"
#include "Platform/Linux/Process/SocketDiagnosis.h"

namespace monitor::platform {
namespace {

constexpr const char* kProc = "/proc";

const std::shared_ptr<BootTime>& bootTimeOfThisProgram() {
  static const auto bootTime = std::make_shared<BootTime>(kProc);
  return bootTime;
}

// Descriptors that the table may keep: not those that the rest of the program needs, and not so many that
// what the kernel keeps behind them weighs more than the time they save.
std::size_t descriptorsToKeep() {
  constexpr rlim_t kReserved = 256;
  constexpr rlim_t kMost = 16'384;
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
  const rlim_t wanted = std::min<rlim_t>(limit.rlim_max, kMost + kReserved);
  if (limit.rlim_cur < wanted) {
    const rlimit raised{wanted, limit.rlim_max};
    if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
  }
  return limit.rlim_cur > kReserved ? std::min(limit.rlim_cur - kReserved, kMost) : 0;
}

}  // namespace

std::shared_ptr<ProcessTable> makeProcessTable() {
  return std::make_shared<ProcfsProcessTable>(kProc, bootTimeOfThisProgram());
}

std::shared_ptr<ProcessTable> makeSampledProcessTable() {
  SampledProcessTable::Settings settings;
  settings.root = kProc;
  settings.owner = ::getuid();
  settings.keptDescriptors = descriptorsToKeep();
  settings.listeners = diagnoseListeningSockets;
  return std::make_shared<SampledProcessTable>(std::move(settings), bootTimeOfThisProgram(),
                                               std::make_shared<BootTimeClock>());
}

std::shared_ptr<ApplicationBundles> makeApplicationBundles() {
  return std::make_shared<DesktopApplicationBundles>(kProc, desktopEntryFolders(), messagesLocale());
}

}  // namespace monitor::platform
