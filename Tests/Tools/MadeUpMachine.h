// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "MonitorCore/AdvancedMerge.h"
#include "MonitorMac/NativeMonitorCollector.h"
#include "Tests/Fakes/FakeApplicationBundles.h"
#include "Tests/Fakes/FakeHost.h"
#include "Tests/Fakes/FakeProcessTable.h"
#include "Tests/Fakes/FakeSystemInformation.h"
#include "Tests/Fakes/VirtualTime.h"
#include "Tools/vesk/Monitor/AdvancedReadings.h"
#include "Tools/vesk/Monitor/MonitorHost.h"
#include "Tools/vesk/Monitor/Pause.h"

namespace monitor::vesk {

// Virtual time that goes on when a command waits; the test may change the machine meanwhile, or end the
// command.
class VirtualPause final : public Pause {
 public:
  VirtualPause(fakes::VirtualTime& time, const Clock& clock) : time_(time), clock_(clock) {}

  [[nodiscard]] bool until(double time) override {
    if (waits.size() >= mostWaits) return false;
    waits.push_back(time);
    time_.advance(std::max(0.0, time - clock_.now()));
    if (meanwhile) meanwhile();
    return true;
  }

  std::vector<double> waits;  // the times that were waited for
  std::size_t mostWaits = 1'000;
  std::function<void()> meanwhile;

 private:
  fakes::VirtualTime& time_;
  const Clock& clock_;
};

// A helper whose sample the test sets.
class ScriptedReadings final : public AdvancedReadings {
 public:
  void request() override { ++requests; }
  void settle(double seconds) override { settled += seconds; }
  void mergeInto(MonitorSnapshot& snapshot) override {
    if (sample) mergeAdvanced(snapshot, *sample);
  }
  [[nodiscard]] std::string status() const override { return text; }

  std::optional<AdvancedSample> sample;
  std::string text = "The helper sleeps.";
  int requests = 0;
  double settled = 0.0;
};

// A machine with one app of one process, and a sampler over it.
struct MadeUpMachine {
  static constexpr std::uint64_t kStart = 1'731'700'000'000'000;

  MadeUpMachine() {
    add(812, "/usr/bin/editor");
    pause.meanwhile = [this] { work(); };
  }

  fakes::FakeProcessTable::Process& add(std::int32_t pid, std::string executable) {
    auto& process = processes.add({pid, kStart}, std::move(executable));
    process.usage = ProcessUsage{0, 100U << 20U, 0, 0};
    return process;
  }
  // What happens between two looks: half of the processor is busy, and every process uses a tenth of one.
  void work() {
    host.ticks->user += 50;
    host.ticks->idle += 50;
    for (auto& [pid, process] : processes.processes) {
      process.usage->cpuTime += 100'000'000;
      process.usage->diskRead = process.usage->diskRead.value_or(0) + 4'096;
    }
  }
  MonitorHost monitor() { return {collector, readings, clock, pause}; }

  fakes::VirtualTime time;
  fakes::FakeClock clock{time};
  fakes::FakeWallClock wallClock{time};
  fakes::FakeSystemInformation system;
  fakes::FakeHostStatistics host;
  fakes::FakeNetworkInterfaces network;
  fakes::FakeBlockStorage storage;
  fakes::FakePowerSources power;
  fakes::FakeAccessories accessories;
  fakes::FakeProcessTable processes;
  fakes::FakeApplicationBundles bundles;
  NativeMonitorCollector collector{{clock, wallClock, system, host, network, storage, power, accessories,
                                    processes, bundles, kLinuxSourceTexts}};
  ScriptedReadings readings;
  VirtualPause pause{time, clock};
};

}  // namespace monitor::vesk
