// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Platform/Linux/Power/DrmClients.h"

namespace monitor::platform {

// What one look at a process shows.
struct ProcessActivity {
  std::int32_t pid = 0;
  std::uint64_t startTicks = 0;  // since boot: together with the pid, which process it is
  std::uint64_t cpuTicks = 0;    // user and system time
  std::string name;              // the kernel's, reduced to printable ASCII
  // Whether its sockets are those of this process's network namespace and all of them were seen.
  bool socketsKnown = false;
  std::vector<std::uint64_t> sockets;  // inode numbers
  DrmClients drmClients;
};

// How much of the machine's descriptors one look takes in, the processes with the fewest first. A process
// beyond the bounds has unknown sockets and no clients of graphics cards: however many files somebody opens,
// two looks end well within the time that the helper gives them. One descriptor takes a few microseconds.
struct ActivityLimits {
  std::size_t descriptorsOfAProcess = 20'000;
  std::size_t descriptors = 40'000;
};

// The processes below `proc`, "/proc" on a live machine, by pid. Those that end meanwhile, or only wait for
// their parents, are left out. Descriptors of other users' processes are shown to root only.
[[nodiscard]] std::vector<ProcessActivity> readProcessActivity(const std::string& proc,
                                                               const ActivityLimits& limits = {});

// How many ticks of a processor's time make a second.
[[nodiscard]] double cpuTicksPerSecond();

}  // namespace monitor::platform
