// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/BuiltServices.h"

#include "Tools/AudioLab/PrivateStack.h"

namespace monitor::lab {

std::vector<Activation> builtServices() {
  return {{.name = kServiceName, .command = builtProgram("vesk-monitor-audio")},
          {.name = kAgentName, .command = builtProgram("vesk") + " agent"}};
}

}  // namespace monitor::lab
