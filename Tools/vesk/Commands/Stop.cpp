// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

#include "Tools/vesk/Agent/AgentAnswers.h"
#include "Tools/vesk/Agent/AgentConnection.h"
#include "Tools/vesk/ApplicationChoice.h"
#include "Tools/vesk/CommandLine.h"
#include "Tools/vesk/Commands/Commands.h"
#include "Tools/vesk/TextWidth.h"

namespace monitor::vesk {
namespace {

// Nothing is held where no agent runs, so none is started to ask.
std::vector<AudioApplication> heldApplications(agent::AgentConnection& connection) {
  std::vector<AudioApplication> applications;
  if (const auto status = connection.status()) {
    for (const HeldGain& held : status->held) applications.push_back(held.app);
  }
  return applications;
}

ExitCode stopAll(const Console& console) {
  agent::AgentConnection connection;
  const auto answer = connection.stop("");
  if (answer) agent::throwIfRefused(*answer);
  console.out << "All programs: normal playback\n";
  return ExitCode::Ok;
}

ExitCode stopOne(const std::string& name, const Console& console) {
  agent::AgentConnection connection;
  const std::vector<AudioApplication> held = heldApplications(connection);
  const AudioApplication& app = chooseApplication(held, name, "program with a changed volume");
  const auto answer = connection.stop(app.id);
  if (answer) agent::throwIfRefused(*answer);
  console.out << fmt::format("{}: normal playback\n", printable(app.name));
  return ExitCode::Ok;
}

}  // namespace

void addStopCommand(CommandLine& commandLine) {
  const auto application = std::make_shared<std::string>();
  CLI::App& command =
      commandLine.add("Volume", "stop", "Give one program, or all, their normal playback back",
                      [application](const Console& console) {
                        return application->empty() ? stopAll(console) : stopOne(*application, console);
                      });
  command.add_option("APP", *application,
                     "Id, bundle identifier, name, start of a name, or pid; without it, all");
}

}  // namespace monitor::vesk
