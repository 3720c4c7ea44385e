// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/ProcessAdapters.h"

#include "Platform/Linux/Process/BootTime.h"
#include "Platform/Linux/Process/DesktopApplicationBundles.h"
#include "Platform/Linux/Process/DesktopEntries.h"
#include "Platform/Linux/Process/DesktopEntry.h"
#include "Platform/Linux/Process/ProcfsProcessTable.h"

namespace monitor::platform {
namespace {

constexpr const char* kProc = "/proc";

const std::shared_ptr<BootTime>& bootTimeOfThisProgram() {
  static const auto bootTime = std::make_shared<BootTime>(kProc);
  return bootTime;
}

}  // namespace

std::shared_ptr<ProcessTable> makeProcessTable() {
  return std::make_shared<ProcfsProcessTable>(kProc, bootTimeOfThisProgram());
}

std::shared_ptr<ApplicationBundles> makeApplicationBundles() {
  return std::make_shared<DesktopApplicationBundles>(kProc, desktopEntryFolders(), messagesLocale());
}

}  // namespace monitor::platform
