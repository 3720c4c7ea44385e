// SPDX-License-Identifier: MIT
#include "Tools/vesk/Commands/Commands.h"

namespace monitor::vesk {

void addAllCommands([[maybe_unused]] CommandLine& commandLine) {
#define VESK_COMMAND(Name) add##Name##Command(commandLine);
#include "Tools/vesk/Commands/Commands.inc"
#undef VESK_COMMAND
}

}  // namespace monitor::vesk
