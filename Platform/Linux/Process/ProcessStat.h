// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace monitor::platform {

// What is used of /proc/PID/stat.
struct ProcessStat {
  char state = '?';
  std::int32_t parent = 0;
  std::int32_t terminal = 0;  // device number of the controlling terminal; 0 for none
  bool kernelThread = false;  // has neither memory nor a program of its own
  std::uint64_t userTicks = 0;
  std::uint64_t systemTicks = 0;
  std::int64_t threads = 0;
  std::uint64_t startTicks = 0;  // since boot
  std::uint64_t residentPages = 0;
  // A mark of the program: its name and where it lies in memory, both of which change with the next program
  // that the process starts in its place. Where the kernel hides the places only the name counts.
  std::size_t program = 0;

  // Nothing but an entry that waits for the parent. A process whose first thread ended before the others
  // looks like one, but still has several threads.
  [[nodiscard]] bool ended() const { return (state == 'Z' || state == 'X' || state == 'x') && threads <= 1; }
};

// The command name in the text may hold anything, brackets, blanks and line ends included.
[[nodiscard]] std::optional<ProcessStat> parseProcessStat(std::string_view text);

}  // namespace monitor::platform
