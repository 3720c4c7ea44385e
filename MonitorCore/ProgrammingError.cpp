// SPDX-License-Identifier: MIT
#include "MonitorCore/ProgrammingError.h"

#include <cstdio>
#include <cstdlib>

namespace monitor {

void stopForProgrammingError(std::string_view message) {
  std::fprintf(stderr, "vesk: %.*s\n", static_cast<int>(message.size()), message.data());
  std::abort();
}

}  // namespace monitor
