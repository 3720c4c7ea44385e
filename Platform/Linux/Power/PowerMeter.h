// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "MonitorCore/Ports/Time.h"
#include "Platform/Linux/Power/PowerReport.h"

namespace monitor::platform {

// What is measured; what is not wanted is not even looked at.
struct PowerWanted {
  bool tasks = false;
  bool network = false;  // of the tasks
  bool cpuPower = false;
  bool gpuPower = false;
  bool sensors = false;
};

// Where the counters are. The members outlive the meter.
struct PowerSources {
  std::filesystem::path root;  // "/" on a live machine: /proc and /sys are read below it
  TcpSockets& sockets;
  const Clock& clock;                // goes on while the machine sleeps
  std::function<void(double)> wait;  // for so many seconds
};

// One interval. What the machine does not tell is absent.
struct PowerReading {
  double seconds = 0.0;
  std::optional<double> packageWatts;
  std::optional<double> gpuShare;  // 0 to 1
  std::optional<double> cpuCelsius;
  std::optional<double> gpuCelsius;
  std::vector<double> fanSpeeds;  // revolutions per minute
  std::vector<TaskReport> tasks;  // by pid
};

// Measures one interval after the other; each begins where the one before it ended. For one thread.
class PowerMeter {
 public:
  // Takes the first look.
  PowerMeter(PowerSources sources, PowerWanted wanted);

  // Waits until `seconds` after the beginning of the interval, looks again, and says what lay between. The
  // interval is longer where the looks themselves took longer.
  [[nodiscard]] PowerReading next(double seconds);

 private:
  [[nodiscard]] PowerSnapshot look();
  [[nodiscard]] std::vector<GraphicsCards> waitUntil(double due);
  [[nodiscard]] PowerReading read(const PowerInterval& interval) const;

  PowerSources sources_;
  PowerWanted wanted_;
  HostFiles files_;
  PowerSnapshot last_;
};

}  // namespace monitor::platform
