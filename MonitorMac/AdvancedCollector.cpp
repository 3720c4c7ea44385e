// SPDX-License-Identifier: MIT
#include "MonitorMac/AdvancedCollector.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "MonitorCore/AdvancedParser.h"
#include "MonitorCore/MonitorError.h"
#include "MonitorCore/Utf8.h"
#include "MonitorMac/ProcessIdentity.h"

namespace monitor {
namespace {

constexpr double kProbeTimeoutSeconds = 2.0;
constexpr double kRunTimeoutSeconds = 5.0;
constexpr std::size_t kOutputLimit = 8'388'608;
constexpr std::string_view kWhiteSpace = " \t\r\v\f";

bool isProbe(const std::vector<std::string>& arguments) {
  return std::find(arguments.begin(), arguments.end(), "--help") != arguments.end();
}

// The output of one run of the tool.
Data runTool(const AdvancedCollector::Ports& ports, std::vector<std::string> arguments, double timeout) {
  const bool probe = isProbe(arguments);
  ToolResult result = ports.runner.run({
      .executable = std::string(ports.tool),
      .arguments = std::move(arguments),
      // A fixed locale, so that the format of numbers never changes.
      .environment = {{"PATH", "/usr/bin:/bin"}, {"LC_ALL", "C"}},
      .errorsToOutput = probe,  // the tool prints its help there
      .timeout = timeout,
      .outputLimit = kOutputLimit,
  });
  switch (result.outcome) {
    case ToolResult::Outcome::StartFailed:
      throw MonitorError(
          MonitorError::kPosixDomain, result.code,
          std::string(ports.tool) + " could not be started (error " + std::to_string(result.code) + ").");
    case ToolResult::Outcome::OutputTooLarge:
      throw MonitorError(MonitorError::kCocoaDomain, MonitorError::kReadTooLarge,
                         "The power-metrics tool printed more than 8 MiB.");
    case ToolResult::Outcome::StillRunning:
      break;
    case ToolResult::Outcome::Exited:
    case ToolResult::Outcome::Signalled:
      if (result.succeeded() || probe) return std::move(result.output);
      break;
  }
  throw MonitorError(MonitorError::kMonitorDomain, MonitorError::kCollectionFailed,
                     "macOS could not collect the optional hardware readings.");
}

// Whether the tool's help lists the extra sampler: a line that begins with its name and a blank.
bool helpListsSMC(std::string_view help) {
  if (repairedUtf8(std::string(help)) != help) return false;
  while (!help.empty()) {
    const std::size_t end = std::min(help.find('\n'), help.size());
    std::string_view line = help.substr(0, end);
    help.remove_prefix(std::min(end + 1, help.size()));
    line.remove_prefix(std::min(line.find_first_not_of(kWhiteSpace), line.size()));
    line = line.substr(0, line.find_last_not_of(kWhiteSpace) + 1);
    if (line.starts_with("smc ")) return true;
  }
  return false;
}

using Identities = std::unordered_map<std::int32_t, ProcessKey>;

Identities processesOf(ProcessTable& processes, std::uint32_t owner) {
  Identities identities;
  for (const std::int32_t pid : processes.allPids()) {
    if (const auto info = processInfo(processes, pid); info && info->owner == owner) {
      identities.emplace(pid, info->key);
    }
  }
  return identities;
}

// Keeps the processes that are still the same ones, so that a reused pid never gets its predecessor's
// traffic.
void dropEnded(Identities& identities, ProcessTable& processes, std::uint32_t owner) {
  std::erase_if(identities, [&](const auto& entry) {
    const auto info = processInfo(processes, entry.first);
    return !info || info->owner != owner || info->key != entry.second;
  });
}

}  // namespace

AdvancedSample AdvancedCollector::sample(const Ports& ports, std::uint32_t owner) {
  Identities identities = processesOf(ports.processes, owner);
  std::string samplers = "tasks,cpu_power,gpu_power,thermal";
  if (helpListsSMC(runTool(ports, {"--help"}, kProbeTimeoutSeconds))) samplers += ",smc";
  const Data output = runTool(ports,
                              {"--samplers", samplers, "--show-process-netstats", "--show-process-energy",
                               "--sample-count", "1", "--sample-rate", "1000", "--format", "plist"},
                              kRunTimeoutSeconds);
  dropEnded(identities, ports.processes, owner);
  return AdvancedParser::parse(output, identities, ports.wallClock.now(), ports.details);
}

}  // namespace monitor
