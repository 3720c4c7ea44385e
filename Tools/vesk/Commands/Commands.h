// SPDX-License-Identifier: MIT
#pragma once

namespace monitor::vesk {

class CommandLine;

#define VESK_COMMAND(Name) void add##Name##Command(CommandLine& commandLine);
#include "Tools/vesk/Commands/Commands.inc"
#undef VESK_COMMAND

// Registers every command of Commands.inc.
void addAllCommands(CommandLine& commandLine);

}  // namespace monitor::vesk
