// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/MonitorServiceIdentity.h"
#include "Tools/vesk/Agent/AgentConnection.h"
#include "Tools/vesk/Agent/AgentProtocol.h"
#include "Tools/vesk/AudioServerProbe.h"
#include "Tools/vesk/CommandLine.h"
#include "Tools/vesk/Commands/Commands.h"
#include "Tools/vesk/GainText.h"
#include "Tools/vesk/Table.h"
#include "Tools/vesk/TextWidth.h"

namespace monitor::vesk {
namespace {

struct Report {
  std::optional<pid_t> agentPid;
  std::optional<pid_t> servicePid;
  AudioServerState audioServer;
  std::optional<GainKeeper::Status> agent;  // nothing where none runs
  std::string agentProblem;                 // … or where one runs and says nothing
};

// Starts neither agent nor service.
Report gather() {
  agent::AgentConnection connection;
  Report report;
  try {
    report.agent = connection.status();
  } catch (const CommandError& error) {
    // The rest is all the more worth knowing.
    report.agentProblem = error.what();
  }
  report.agentPid = connection.ownerOf(agent::kBusName);
  report.servicePid = connection.ownerOf(std::string(MonitorServiceIdentity::audio).c_str());
  report.audioServer = probeAudioServer();
  return report;
}

std::string localTime(Date date) {
  const auto seconds = static_cast<std::time_t>(date.secondsSince1970());
  std::tm parts{};
  if (localtime_r(&seconds, &parts) == nullptr) return "?";
  char text[32];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  return {text, length};
}

std::string runningText(const std::optional<pid_t>& pid, const char* otherwise) {
  return pid ? fmt::format("running (pid {})", *pid) : std::string(otherwise);
}

std::string serviceText(const Report& report) {
  std::string text = runningText(report.servicePid, "not running; it is started when it is needed");
  if (report.servicePid && report.agent && report.agent->secondsSinceAnswer) {
    text += fmt::format(", answered {:.1f} s ago", *report.agent->secondsSinceAnswer);
  }
  return text;
}

std::string audioServerText(const AudioServerState& state) {
  if (state.reachable) return "reachable at " + printable(state.address);
  if (state.address.empty()) return "not reachable: " + state.problem;
  return fmt::format("not reachable at {}: {}", printable(state.address), state.problem);
}

std::string heldTable(const GainKeeper::Status& status, const Terminal& terminal) {
  Table table({{"NAME", Align::Left, true},
               {"VOLUME", Align::Right},
               {"STATE"},
               {"ID", Align::Left, true},
               {"NOTE", Align::Left, true}});
  for (const HeldGain& held : status.held) {
    table.add({held.app.name, percentText(held.gain), std::string(agent::stateText(held.state)), held.app.id,
               held.trouble});
  }
  return table.text(terminal);
}

void printAgent(const GainKeeper::Status& status, const Console& console) {
  if (!status.lastError.empty()) {
    console.out << "Last error:     " << printable(status.lastError) << '\n';
    if (!status.lastCause.empty()) console.out << "                " << printable(status.lastCause) << '\n';
  }
  if (!status.held.empty()) console.out << '\n' << heldTable(status, console.outTerminal);
  if (!status.events.empty()) console.out << '\n';
  for (const auto& event : status.events) {
    console.out << localTime(event.time) << "  " << printable(event.text) << '\n';
  }
}

void printText(const Report& report, const Console& console) {
  console.out << "Agent:          " << runningText(report.agentPid, "not running; no volume is held") << '\n'
              << "Audio service:  " << serviceText(report) << '\n'
              << "Audio server:   " << audioServerText(report.audioServer) << '\n';
  if (report.agent) printAgent(*report.agent, console);
}

json::Writer processObject(const std::optional<pid_t>& pid) {
  json::Writer object = json::Writer::object();
  object.set("running", pid.has_value());
  if (pid) object.set("pid", *pid);
  return object;
}

void printJson(const Report& report, const Console& console) {
  json::Writer server = json::Writer::object();
  server.set("reachable", report.audioServer.reachable);
  server.set("address", report.audioServer.address);
  server.set("problem", report.audioServer.problem);
  json::Writer agentObject = processObject(report.agentPid);
  if (report.agent) agentObject.set("status", agent::statusObject(*report.agent));
  if (!report.agentProblem.empty()) agentObject.set("problem", report.agentProblem);
  json::Writer object = json::Writer::object();
  object.set("agent", std::move(agentObject));
  object.set("service", processObject(report.servicePid));
  object.set("audioServer", std::move(server));
  console.out << object.text() << '\n';
}

}  // namespace

void addStatusCommand(CommandLine& commandLine) {
  const auto json = std::make_shared<bool>(false);
  CLI::App& command = commandLine.add("Volume", "status", "Show what is held and whether everything runs",
                                      [json](const Console& console) {
                                        const Report report = gather();
                                        *json ? printJson(report, console) : printText(report, console);
                                        console.complain(report.agentProblem);
                                        return report.agentProblem.empty() ? ExitCode::Ok : ExitCode::Failed;
                                      });
  command.add_flag("--json", *json,
                   "Print a JSON object with agent (running, pid, status), service and audioServer");
}

}  // namespace monitor::vesk
