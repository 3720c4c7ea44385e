// SPDX-License-Identifier: MIT
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "Tools/vesk/Agent/AgentAnswers.h"
#include "Tools/vesk/Agent/AgentConnection.h"
#include "Tools/vesk/CommandLine.h"
#include "Tools/vesk/Commands/Commands.h"
#include "Tools/vesk/GainText.h"
#include "Tools/vesk/Table.h"

namespace monitor::vesk {
namespace {

constexpr std::chrono::seconds kWatchInterval{1};

struct Options {
  bool json = false;
  bool watch = false;
};

std::string pidsText(const AudioApplication& app) {
  std::string text;
  for (const ProcessKey& key : app.processes) {
    if (!text.empty()) text += ' ';
    text += std::to_string(key.pid);
  }
  return text;
}

std::string tableOf(std::vector<AudioApplication> applications, const Terminal& terminal) {
  if (applications.empty()) return "No program plays audio.\n";
  // What sounds comes first.
  std::sort(applications.begin(), applications.end(), [](const auto& left, const auto& right) {
    return std::tuple(!left.running, left.name, left.id) < std::tuple(!right.running, right.name, right.id);
  });
  Table table({{"NAME", Align::Left, true},
               {"VOLUME", Align::Right},
               {"STATE"},
               {"PID", Align::Left, true},
               {"ID", Align::Left, true}});
  for (const AudioApplication& app : applications) {
    table.add({app.name, percentText(app.gain), app.running ? "playing" : "silent", pidsText(app), app.id});
  }
  return table.text(terminal);
}

std::string shown(const agent::ListedApplications& listed, bool json, const Terminal& terminal) {
  return json ? encodeApplications(listed.applications) + '\n' : tableOf(listed.applications, terminal);
}

ExitCode listOnce(const Options& options, const Console& console) {
  agent::AgentConnection connection;
  const agent::ListedApplications listed = agent::listOrThrow(connection.list());
  console.out << shown(listed, options.json, console.outTerminal) << std::flush;
  console.complain(listed.message);
  return ExitCode::Ok;
}

// Redraws in place on a terminal; elsewhere prints again whenever something changed, JSON as one array a
// line.
ExitCode watch(const Options& options, const Console& console) {
  agent::AgentConnection connection;
  std::string before;
  std::string messageBefore;
  for (bool first = true; console.out; first = false) {
    const agent::ListedApplications listed = agent::listOrThrow(connection.list());
    const bool redraws = console.outTerminal.interactive && !options.json;
    // Asked anew each time: the window may have changed its size.
    const std::string text =
        shown(listed, options.json, redraws ? terminalOf(STDOUT_FILENO) : console.outTerminal);
    if (redraws) {
      console.out << "\x1b[H\x1b[2J" << text << std::flush;
      console.complain(listed.message);
    } else if (text != before || first) {
      console.out << (first || options.json ? "" : "\n") << text << std::flush;
    }
    if (!redraws && listed.message != messageBefore) console.complain(listed.message);
    before = text;
    messageBefore = listed.message;
    std::this_thread::sleep_for(kWatchInterval);
  }
  return ExitCode::Ok;
}

}  // namespace

void addAppsCommand(CommandLine& commandLine) {
  const auto options = std::make_shared<Options>();
  CLI::App& command =
      commandLine.add("Volume", "apps", "List the programs that play audio, with their volume",
                      [options](const Console& console) {
                        return options->watch ? watch(*options, console) : listOnce(*options, console);
                      });
  command.add_flag(
      "--json", options->json,
      "Print a JSON array of objects with id, name, bundleID, processes, gain (0 to 1) and running");
  command.add_flag("--watch", options->watch, "Go on and show every change; Ctrl-C ends it");
}

}  // namespace monitor::vesk
