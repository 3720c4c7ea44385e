// SPDX-License-Identifier: MIT
#include "Tools/vesk/Monitor/PlatformMonitor.h"

#ifdef __APPLE__
#include "Platform/Darwin/BundleApplications.h"
#include "Platform/Darwin/Clocks.h"
#include "Platform/Darwin/CoreAudioHardware.h"
#include "Platform/Darwin/LibprocProcessTable.h"
#include "Platform/Darwin/MachHostStatistics.h"
#else
#include "Platform/Linux/Audio/AudioHardwareProvider.h"
#include "Platform/Linux/Base/Clocks.h"
#include "Platform/Linux/Base/FreedMemory.h"
#include "Platform/Linux/Base/LinuxSystemInformation.h"
#include "Platform/Linux/Host/HostAdapters.h"
#include "Platform/Linux/Host/IcuTextOrder.h"
#include "Platform/Linux/Process/ProcessAdapters.h"
#endif
#include "Tools/vesk/Monitor/HelperAdvancedReadings.h"

namespace monitor::vesk {
namespace {

#ifdef __APPLE__
constexpr const SourceTexts& kSourceTexts = kMacSourceTexts;
std::unique_ptr<Clock> uptimeClock() {
  return platform::makeUptimeClock();
}
std::unique_ptr<WallClock> wallClock() {
  return platform::makeWallClock();
}
std::shared_ptr<ProcessTable> sampledProcesses() {
  return platform::makeProcessTable();
}
void prepareSampling() {}
#else
constexpr const SourceTexts& kSourceTexts = kLinuxSourceTexts;
std::unique_ptr<Clock> uptimeClock() {
  return std::make_unique<platform::BootTimeClock>();
}
std::unique_ptr<WallClock> wallClock() {
  return std::make_unique<platform::SystemWallClock>();
}
std::shared_ptr<ProcessTable> sampledProcesses() {
  return platform::makeSampledProcessTable();
}
void prepareSampling() {
  platform::keepFreedMemory();
}
#endif

}  // namespace

struct PlatformMonitor::Ports {
  std::unique_ptr<Clock> uptime = uptimeClock();
  std::unique_ptr<WallClock> clock = wallClock();
  std::shared_ptr<SystemInformation> system = platform::makeSystemInformation();
  std::unique_ptr<HostStatistics> host = platform::makeHostStatistics();
  std::unique_ptr<NetworkInterfaces> network = platform::makeNetworkInterfaces();
  std::unique_ptr<BlockStorage> storage = platform::makeBlockStorage();
  std::unique_ptr<PowerSources> power = platform::makePowerSources();
  std::unique_ptr<Accessories> accessories = platform::makeAccessories();
  std::shared_ptr<ProcessTable> processes = platform::makeProcessTable();
  std::shared_ptr<ProcessTable> sampled = sampledProcesses();  // the collector's alone
  std::shared_ptr<ApplicationBundles> bundles = platform::makeApplicationBundles();
  std::unique_ptr<TextOrder> order = platform::makeTextOrder();
  NativeMonitorCollector collector{{*uptime, *clock, *system, *host, *network, *storage, *power, *accessories,
                                    *sampled, *bundles, kSourceTexts}};
  // Made when first needed.
  std::shared_ptr<AudioHardwareProvider> audio;
  std::shared_ptr<AudioHardware> view;
  std::unique_ptr<AdvancedReadings> advanced;
};

PlatformMonitor::PlatformMonitor() : ports_(std::make_unique<Ports>()) {
  prepareSampling();
}
PlatformMonitor::~PlatformMonitor() = default;

NativeMonitorCollector& PlatformMonitor::collector() {
  return ports_->collector;
}

AdvancedReadings& PlatformMonitor::advanced() {
  if (!ports_->advanced) ports_->advanced = std::make_unique<HelperAdvancedReadings>();
  return *ports_->advanced;
}

std::vector<ActiveAudioApplication> PlatformMonitor::sounding() {
  if (!ports_->view) {
    ports_->audio = platform::makeAudioHardwareProvider();
    ports_->view = ports_->audio->openView();
  }
  return NativeAudioActivity::snapshot(
      {*ports_->view, *ports_->processes, *ports_->bundles, *ports_->system, *ports_->order});
}

std::string PlatformMonitor::soundingProblem() const {
  return ports_->view ? ports_->view->lastFailure().text : std::string();
}

}  // namespace monitor::vesk
