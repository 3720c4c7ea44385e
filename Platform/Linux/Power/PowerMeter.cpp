// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/PowerMeter.h"

#include <algorithm>
#include <utility>

#include "Platform/Linux/Power/SensorChips.h"

namespace monitor::platform {
namespace {

// Between two looks at what drivers only say of the moment.
constexpr double kLookEvery = 0.1;

}  // namespace

PowerMeter::PowerMeter(PowerSources sources, PowerWanted wanted)
    : sources_(std::move(sources)), wanted_(wanted), files_(sources_.root), last_(look()) {
  // What ended before the first look belongs to no interval.
  if (wanted_.network) (void)sources_.sockets.ended();
}

// The quick counters come first, close to the reading of the clock; the walk through the processes, which
// takes longer, has the same place in every look.
PowerSnapshot PowerMeter::look() {
  PowerSnapshot snapshot;
  snapshot.time = sources_.clock.now();
  if (wanted_.cpuPower) snapshot.packages = readPackageEnergy(files_);
  if (wanted_.gpuPower) snapshot.cards = readGraphicsCards(files_);
  if (wanted_.network) snapshot.sockets = sources_.sockets.current();
  // The clients of graphics cards are found by the descriptors of processes.
  if (wanted_.tasks || wanted_.gpuPower)
    snapshot.processes = readProcessActivity((sources_.root / "proc").string());
  return snapshot;
}

std::vector<GraphicsCards> PowerMeter::waitUntil(double due) {
  std::vector<GraphicsCards> looks;
  while (true) {
    const double left = due - sources_.clock.now();
    if (!(left > 0)) return looks;
    sources_.wait(wanted_.gpuPower ? std::min(left, kLookEvery) : left);
    // The look at the end of the interval is near enough then.
    const bool endIsNear = due - sources_.clock.now() < kLookEvery / 2;
    if (wanted_.gpuPower && !endIsNear) looks.push_back(readGraphicsCards(files_));
  }
}

PowerReading PowerMeter::read(const PowerInterval& interval) const {
  PowerReading reading;
  reading.seconds = secondsOf(interval);
  reading.packageWatts = packageWatts(interval.before.packages, interval.after.packages, reading.seconds);
  if (wanted_.gpuPower) reading.gpuShare = graphicsShare(interval);
  if (wanted_.tasks) reading.tasks = taskReports(interval);
  if (wanted_.sensors) {
    const auto chips = readSensorChips(files_);
    reading.cpuCelsius = cpuTemperature(chips);
    reading.gpuCelsius = gpuTemperature(chips);
    reading.fanSpeeds = fanSpeeds(chips);
  }
  return reading;
}

PowerReading PowerMeter::next(double seconds) {
  PowerInterval interval;
  interval.ticksPerSecond = cpuTicksPerSecond();
  interval.looksBetween = waitUntil(last_.time + seconds);
  interval.before = std::move(last_);
  interval.after = look();
  // After the list, so that no connection ends unseen between the two.
  if (wanted_.network) interval.endedSockets = sources_.sockets.ended();
  PowerReading reading = read(interval);
  last_ = std::move(interval.after);
  return reading;
}

}  // namespace monitor::platform
