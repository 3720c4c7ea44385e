// SPDX-License-Identifier: MIT
#pragma once

#include "MonitorMac/Ports/HostStatistics.h"
#include "Platform/Linux/Host/HostFiles.h"

namespace monitor::platform {

// Interface counters by netlink. An interface is physical when a device stands behind it: bridges, bonds,
// VLANs, tunnels and the ends of containers have none, and what passes through them passes through a physical
// one too. Of two with a device that carry the same traffic one counts.
class NetlinkInterfaces final : public NetworkInterfaces {
 public:
  explicit NetlinkInterfaces(HostFiles files) : files_(std::move(files)) {}

  [[nodiscard]] std::set<std::string> physicalInterfaces() override;
  [[nodiscard]] std::vector<InterfaceCounter> counters() override;

 private:
  HostFiles files_;
};

}  // namespace monitor::platform
