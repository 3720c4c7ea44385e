// SPDX-License-Identifier: MIT
// A whole sample of this machine, processes, devices and grouping, next to a thousand processes of our own:
// against the bare system calls below it, and against other monitors. In processor time throughout: a sample
// waits for nothing.
#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Benchmarks/Harness/Suite.h"
#include "Benchmarks/ProcessHerd.h"
#include "Benchmarks/SamplingFloors.h"
#include "Benchmarks/TerminalPeer.h"
#include "MonitorMac/NativeMonitorCollector.h"
#include "Platform/Linux/Base/Clocks.h"
#include "Platform/Linux/Base/FreedMemory.h"
#include "Platform/Linux/Base/LinuxSystemInformation.h"
#include "Platform/Linux/Host/NetlinkInterfaces.h"
#include "Platform/Linux/Host/ProcfsHostStatistics.h"
#include "Platform/Linux/Host/SysfsDevices.h"
#include "Platform/Linux/Process/ProcessAdapters.h"

namespace monitor::bench {
namespace {

// Seconds before every sample, so that caches are as they are for a sampler, and active processes have run.
constexpr double kPause = 0.3;
// Seconds between two samples next to a monitor that refreshes so often.
constexpr double kRefresh = 1.0;

double cpuNow() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void pause(double seconds = kPause) {
  timespec time{};
  time.tv_sec = static_cast<time_t>(seconds);
  time.tv_nsec = static_cast<long>((seconds - static_cast<double>(time.tv_sec)) * 1e9);
  ::nanosleep(&time, nullptr);
}

template <class Function>
double cpuSecondsOf(Function&& work) {
  const double begin = cpuNow();
  work();
  return cpuNow() - begin;
}

// The collector over this machine, as a program has it that samples again and again.
class Sampler {
 public:
  Sampler() { platform::keepFreedMemory(); }
  // Seconds of one sample.
  double operator()(bool projects = false) {
    return cpuSecondsOf([&] { apps_ += collector_.sample(projects).apps.size(); });
  }

 private:
  platform::BootTimeClock uptime_;
  platform::SystemWallClock wallClock_;
  std::shared_ptr<SystemInformation> system_ = platform::makeSystemInformation();
  platform::ProcfsHostStatistics host_{platform::HostFiles(), "/"};
  platform::NetlinkInterfaces network_{platform::HostFiles()};
  platform::SysfsBlockStorage storage_{platform::HostFiles()};
  platform::SysfsPowerSources power_{platform::HostFiles()};
  platform::SysfsAccessories accessories_{platform::HostFiles()};
  std::shared_ptr<ProcessTable> processes_ = platform::makeSampledProcessTable();
  std::shared_ptr<ApplicationBundles> bundles_ = platform::makeApplicationBundles();
  NativeMonitorCollector collector_{{uptime_, wallClock_, *system_, host_, network_, storage_, power_,
                                     accessories_, *processes_, *bundles_, kLinuxSourceTexts}};
  std::size_t apps_ = 0;
};

// What a measurement runs on. The herd is exchanged when the next measurement wants another one.
class Stage {
 public:
  void need(const ProcessHerd::Kind& kind) {
    if (herd_ && herd_->kind() == kind) return;
    peer_.reset();
    herd_.reset();
    herd_ = std::make_unique<ProcessHerd>(kind);
    sampler_ = std::make_unique<Sampler>();
    shortcut_ = std::make_unique<IdleShortcut>();
    for (int warm = 0; warm < 4; ++warm) {
      pause();
      (void)(*sampler_)(kind.listeners > 0);
      (void)shortcut_->pass();
    }
  }
  void needPeer(const std::vector<std::string>& command) {
    if (peer_ && peerCommand_ == command) return;
    peer_.reset();
    peer_ = std::make_unique<TerminalPeer>(command);
    peerCommand_ = command;
  }
  double sample(bool projects = false) {
    pause();
    return (*sampler_)(projects);
  }
  // A second after the one before, as a refresh is.
  double sampleLikeAPeer() {
    (void)(*sampler_)();
    pause(kRefresh);
    return (*sampler_)();
  }
  double shortcut() {
    pause();
    return cpuSecondsOf([this] { bytes_ += shortcut_->pass(); });
  }
  double allFiles() {
    pause();
    return cpuSecondsOf([this] { bytes_ += readAllFiles(); });
  }
  double peer() { return peer_->secondsOfARefresh(); }

 private:
  std::unique_ptr<ProcessHerd> herd_;
  std::unique_ptr<Sampler> sampler_;
  std::unique_ptr<IdleShortcut> shortcut_;
  std::unique_ptr<TerminalPeer> peer_;
  std::vector<std::string> peerCommand_;
  std::uint64_t bytes_ = 0;
};

constexpr ProcessHerd::Kind kIdle{1'000, false, 20};
constexpr ProcessHerd::Kind kActive{1'000, true, 0};

Comparison comparison(const std::shared_ptr<Stage>& stage, const std::string& name,
                      const ProcessHerd::Kind& kind, double bound) {
  Comparison result;
  result.name = name;
  result.clock = Clock::Cpu;
  result.bound = bound;
  result.product = {"sample", {}, [stage, kind] {
                      stage->need(kind);
                      return stage->sample();
                    }};
  return result;
}

void addPeer(Suite& suite, const std::shared_ptr<Stage>& stage, const std::vector<std::string>& command,
             double bound) {
  const std::string& program = command.front();
  if (!TerminalPeer::installed(program)) {
    std::fprintf(stderr, "sampling: %s is not installed (ci/packages, section bench), left out\n",
                 program.c_str());
    return;
  }
  Comparison result = comparison(stage, "1000 idle, " + program, kIdle, bound);
  result.product.sample = [stage] {
    stage->need(kIdle);
    return stage->sampleLikeAPeer();
  };
  result.floors = {{1.0, {program + " refresh", {}, [stage, command] {
                            stage->need(kIdle);
                            stage->needPeer(command);
                            return stage->peer();
                          }}}};
  suite.add(result);
}

// Milliseconds that ports and folders add to a sample.
double projectsMilliseconds(Stage& stage) {
  stage.need(kIdle);
  const double without = stage.sample(false);
  return (stage.sample(true) - without) * 1e3;
}

// The slope of the costs over the numbers of processes, on logarithmic scales and by least squares.
double growthExponent(Stage& stage) {
  constexpr std::size_t kSizes[] = {1'000, 3'000, 10'000};
  constexpr int kSamples = 7;
  double sumX = 0, sumY = 0, sumXX = 0, sumXY = 0;
  for (const std::size_t size : kSizes) {
    stage.need({size, false, 0});
    std::vector<double> costs;
    for (int sample = 0; sample < kSamples; ++sample) costs.push_back(stage.sample());
    std::sort(costs.begin(), costs.end());
    const double x = std::log(static_cast<double>(size));
    const double y = std::log(costs[costs.size() / 2]);
    sumX += x, sumY += y, sumXX += x * x, sumXY += x * y;
  }
  constexpr double kCount = std::size(kSizes);
  return (kCount * sumXY - sumX * sumY) / (kCount * sumXX - sumX * sumX);
}

void addSampling(Suite& suite) {
  const auto stage = std::make_shared<Stage>();
  Comparison idle = comparison(stage, "1000 idle", kIdle, 1.3);
  idle.floors = {{1.0, {"idle shortcut", {}, [stage] { return stage->shortcut(); }}}};
  suite.add(idle);
  addPeer(suite, stage, TerminalPeer::htop(), 1.0 / 5.0);
  addPeer(suite, stage, TerminalPeer::btop(), 1.0 / 3.0);
  Comparison active = comparison(stage, "1000 active", kActive, 1.3);
  active.floors = {{1.0, {"stat, io and statm", {}, [stage] { return stage->allFiles(); }}}};
  suite.add(active);
  suite.add(Limit{"projects, 20 listeners", "ms", [stage] { return projectsMilliseconds(*stage); }, 1.0});
  // Once: it takes fourteen thousand processes.
  const auto exponent = std::make_shared<double>(0.0);
  suite.add(Limit{"growth exponent to 10000", "",
                  [stage, exponent] {
                    if (*exponent == 0.0) *exponent = growthExponent(*stage);
                    return *exponent;
                  },
                  1.15});
}

const Registration kRegistration("sampling", addSampling);

}  // namespace
}  // namespace monitor::bench
