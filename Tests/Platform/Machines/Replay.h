// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

#include <istream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "MonitorMac/NativeMonitorCollector.h"
#include "Platform/Linux/Host/NetlinkInterfaces.h"
#include "Platform/Linux/Host/ProcfsHostStatistics.h"
#include "Platform/Linux/Host/SysfsDevices.h"
#include "Platform/Linux/Process/BootTime.h"
#include "Platform/Linux/Process/DesktopApplicationBundles.h"
#include "Platform/Linux/Process/SampledProcessTable.h"
#include "Tests/Fakes/FakeSystemInformation.h"
#include "Tests/Fakes/VirtualTime.h"
#include "Tests/Platform/Machines/RecordedMachine.h"

namespace monitor::platform {

class MachineClock final : public Clock {
 public:
  explicit MachineClock(const RecordedMachine& machine) : machine_(machine) {}
  [[nodiscard]] double now() const override { return machine_.uptime(); }

 private:
  const RecordedMachine& machine_;
};

// Which interfaces are physical is found out in the machine's files; what they counted is written down.
class RecordedInterfaces final : public NetworkInterfaces {
 public:
  explicit RecordedInterfaces(const RecordedMachine& machine) : machine_(machine), files_(machine.files()) {}
  [[nodiscard]] std::set<std::string> physicalInterfaces() override {
    return NetlinkInterfaces(files_).physicalInterfaces();
  }
  [[nodiscard]] std::vector<InterfaceCounter> counters() override { return machine_.interfaces(); }

 private:
  const RecordedMachine& machine_;
  HostFiles files_;
};

// The collector over the Linux adapters, all of which look at the recorded machine.
class Replay {
 public:
  explicit Replay(std::istream& text) : machine_(text) { system_.user = ::getuid(); }

  RecordedMachine& machine() { return machine_; }
  MonitorSnapshot sample() { return collector_.sample(true); }

 private:
  [[nodiscard]] std::string path(const char* below) const { return (machine_.root() / below).string(); }
  [[nodiscard]] SampledProcessTable::Settings settings() const {
    SampledProcessTable::Settings settings;
    settings.root = path("proc");
    settings.owner = ::getuid();
    settings.units = {100, 4096};
    return settings;
  }

  RecordedMachine machine_;
  fakes::VirtualTime time_;
  fakes::FakeWallClock wallClock_{time_};
  fakes::FakeSystemInformation system_;
  std::shared_ptr<MachineClock> uptime_ = std::make_shared<MachineClock>(machine_);
  ProcfsHostStatistics host_{machine_.files(), path("home")};
  RecordedInterfaces network_{machine_};
  SysfsBlockStorage storage_{machine_.files()};
  SysfsPowerSources power_{machine_.files()};
  SysfsAccessories accessories_{machine_.files()};
  SampledProcessTable processes_{settings(), std::make_shared<BootTime>(path("proc")), uptime_};
  DesktopApplicationBundles bundles_{path("proc"), {path("usr/share/applications")}, "de_DE.UTF-8"};
  NativeMonitorCollector collector_{{*uptime_, wallClock_, system_, host_, network_, storage_, power_,
                                     accessories_, processes_, bundles_, kLinuxSourceTexts}};
};

}  // namespace monitor::platform
