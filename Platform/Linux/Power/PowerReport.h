// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Linux/Power/GraphicsCards.h"
#include "Platform/Linux/Power/PackageEnergy.h"
#include "Platform/Linux/Power/ProcessActivity.h"
#include "Platform/Linux/Power/TcpSockets.h"

namespace monitor::platform {

// The counters of the machine at one moment.
struct PowerSnapshot {
  double time = 0.0;  // seconds on a clock that goes on while the machine sleeps
  std::vector<PackageEnergy> packages;
  GraphicsCards cards;
  std::optional<std::vector<TcpSocket>> sockets;
  std::vector<ProcessActivity> processes;
};

// What happened between two snapshots.
struct PowerInterval {
  PowerSnapshot before;
  PowerSnapshot after;
  std::vector<GraphicsCards> looksBetween;
  std::vector<TcpSocket> endedSockets;
  double ticksPerSecond = 100.0;
};

// One process that lived through the whole interval.
struct TaskReport {
  std::int32_t pid = 0;
  std::string name;
  double cpuSeconds = 0.0;
  std::optional<double> received;  // bytes; of TCP connections, without headers
  std::optional<double> sent;      // bytes; of TCP connections, without headers
  // 100 for every processor core and every engine of a graphics card that was busy all the time.
  double energyImpact = 0.0;
};

// Seconds between the snapshots.
[[nodiscard]] double secondsOf(const PowerInterval& interval);

// The processes by pid. Bytes are absent for a process that owned no TCP connection, or whose sockets could
// not all be seen, and for all when the kernel did not tell them. A connection that several processes hold
// open counts for the one of them that began first.
[[nodiscard]] std::vector<TaskReport> taskReports(const PowerInterval& interval);

// The busy share of the graphics cards, 0 to 1.
[[nodiscard]] std::optional<double> graphicsShare(const PowerInterval& interval);

}  // namespace monitor::platform
