// SPDX-License-Identifier: MIT
#include "Platform/Linux/Host/HostAdapters.h"

#include "Platform/Linux/Base/XdgFolders.h"
#include "Platform/Linux/Host/NetlinkInterfaces.h"
#include "Platform/Linux/Host/ProcfsHostStatistics.h"
#include "Platform/Linux/Host/SysfsDevices.h"

namespace monitor::platform {

std::unique_ptr<HostStatistics> makeHostStatistics() {
  // A user without a home has what is asked about the root's volume.
  return std::make_unique<ProcfsHostStatistics>(HostFiles(), homeOfThisProcess().value_or("") + "/");
}

std::unique_ptr<NetworkInterfaces> makeNetworkInterfaces() {
  return std::make_unique<NetlinkInterfaces>(HostFiles());
}

std::unique_ptr<BlockStorage> makeBlockStorage() {
  return std::make_unique<SysfsBlockStorage>(HostFiles());
}

std::unique_ptr<PowerSources> makePowerSources() {
  return std::make_unique<SysfsPowerSources>(HostFiles());
}

std::unique_ptr<Accessories> makeAccessories() {
  return std::make_unique<SysfsAccessories>(HostFiles());
}

}  // namespace monitor::platform
