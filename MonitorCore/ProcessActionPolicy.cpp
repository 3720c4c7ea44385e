// SPDX-License-Identifier: MIT
#include "MonitorCore/ProcessActionPolicy.h"

namespace monitor::ProcessActionPolicy {

bool canStop(const ProcessKey& expected, const std::optional<ProcessKey>& current, std::uint32_t owner,
             std::uint32_t currentUser, std::int32_t selfPID) {
  return owner != 0 && owner == currentUser && current == expected && expected.pid > 1 &&
         expected.pid != selfPID;
}

}  // namespace monitor::ProcessActionPolicy
