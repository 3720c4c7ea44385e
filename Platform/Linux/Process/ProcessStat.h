// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace monitor::platform {

// What is used of /proc/PID/stat.
struct ProcessStat {
  char state = '?';
  std::int32_t parent = 0;
  std::int32_t terminal = 0;  // device number of the controlling terminal; 0 for none
  std::uint64_t userTicks = 0;
  std::uint64_t systemTicks = 0;
  std::int64_t threads = 0;
  std::uint64_t startTicks = 0;  // since boot

  // Nothing but an entry that waits for the parent. A process whose first thread ended before the others
  // looks like one, but still has several threads.
  [[nodiscard]] bool ended() const { return (state == 'Z' || state == 'X' || state == 'x') && threads <= 1; }
};

// The command name in the text may hold anything, brackets, blanks and line ends included.
[[nodiscard]] std::optional<ProcessStat> parseProcessStat(std::string_view text);

}  // namespace monitor::platform
