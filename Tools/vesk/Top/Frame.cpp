// SPDX-License-Identifier: MIT
#include "Tools/vesk/Top/Frame.h"

#include <algorithm>

namespace monitor::vesk {

std::string frameUpdate(const std::vector<std::string>& before, const std::vector<std::string>& after) {
  std::string bytes = before.empty() ? "\x1b[0m\x1b[2J" : "";
  for (std::size_t row = 0; row < std::max(before.size(), after.size()); ++row) {
    const std::string old = row < before.size() ? before[row] : std::string();
    const std::string line = row < after.size() ? after[row] : std::string();
    if (line == old) continue;
    bytes += "\x1b[" + std::to_string(row + 1) + ";1H" + line + "\x1b[K";
  }
  return bytes;
}

}  // namespace monitor::vesk
