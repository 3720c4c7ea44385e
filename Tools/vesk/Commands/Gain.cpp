// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "Tools/vesk/Agent/AgentAnswers.h"
#include "Tools/vesk/Agent/AgentConnection.h"
#include "Tools/vesk/ApplicationChoice.h"
#include "Tools/vesk/CommandLine.h"
#include "Tools/vesk/Commands/Commands.h"
#include "Tools/vesk/GainText.h"
#include "Tools/vesk/TextWidth.h"

namespace monitor::vesk {
namespace {

struct Options {
  std::string application;
  std::string value;
};

// What is listed, and what is held for programs that have no audio at the moment.
std::vector<AudioApplication> candidates(agent::AgentConnection& connection) {
  std::vector<AudioApplication> all = agent::listOrThrow(connection.list()).applications;
  const auto status = connection.status();
  if (!status) return all;
  for (const HeldGain& held : status->held) {
    const bool listed =
        std::any_of(all.begin(), all.end(), [&](const auto& app) { return app.id == held.app.id; });
    if (!listed) all.push_back(held.app);
  }
  return all;
}

ExitCode setGain(const Options& options, const Console& console) {
  const double gain = parseGain(options.value);
  agent::AgentConnection connection;
  const std::vector<AudioApplication> all = candidates(connection);
  const AudioApplication& app = chooseApplication(all, options.application, "program that plays audio");
  agent::throwIfRefused(connection.setGain(app.id, gain));
  console.out << fmt::format("{}: {} ({})\n", printable(app.name), percentText(gain),
                             gain == 1.0 ? "normal playback" : decibelText(gain));
  return ExitCode::Ok;
}

}  // namespace

void addGainCommand(CommandLine& commandLine) {
  const auto options = std::make_shared<Options>();
  CLI::App& command =
      commandLine.add("Volume", "gain", "Set the volume of one program",
                      [options](const Console& console) { return setGain(*options, console); });
  command.add_option("APP", options->application, "Id, bundle identifier, name, start of a name, or pid")
      ->required();
  command.add_option("VALUE", options->value, "0.4, 40% or -8dB; 100% is normal playback")->required();
  command.footer(
      "The volume stays until it is changed, the program ends, or the agent that keeps it goes.\n\n" +
      std::string(kExitCodesHelp));
}

}  // namespace monitor::vesk
