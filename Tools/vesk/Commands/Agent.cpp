// SPDX-License-Identifier: MIT
#include <memory>
#include <string>

#include "Tools/vesk/Agent/AgentProgram.h"
#include "Tools/vesk/CommandLine.h"
#include "Tools/vesk/Commands/Commands.h"
#include "Tools/vesk/SecondsOption.h"

namespace monitor::vesk {

void addAgentCommand(CommandLine& commandLine) {
  const auto options = std::make_shared<agent::AgentOptions>();
  CLI::App& command =
      commandLine.add("Volume", "agent", "Keep the volumes that commands set (started by the session bus)",
                      [options](const Console& console) { return agent::runAgent(*options, console); });
  command
      .add_option("--idle", options->idleSeconds,
                  "Seconds without a volume to keep and without a call after which "
                  "it leaves")
      ->check(secondsWithin(0.0, 86'400.0))
      ->capture_default_str();
  command.footer(
      "The other commands start it by themselves. When it ends, every program gets its normal playback "
      "back.\n\n" +
      std::string(kExitCodesHelp));
}

}  // namespace monitor::vesk
