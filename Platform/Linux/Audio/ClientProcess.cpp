// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/ClientProcess.h"

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

namespace monitor::platform {

namespace {

struct Candidate {
  std::int32_t pid = 0;
  ProcessDetails details;
};

std::optional<std::int32_t> pidProperty(const Properties& properties, std::string_view key) {
  const auto number = propertyNumber(properties, key);
  if (!number || *number == 0 || *number > std::numeric_limits<std::int32_t>::max()) return std::nullopt;
  return static_cast<std::int32_t>(*number);
}

bool isOurs(const ProcessStatus& status, const ProcessSource& processes) {
  return status.owner == processes.ownUser();
}

// The claimed process itself, when the claim can be true.
std::optional<Candidate> claimedProcess(std::int32_t claim, double connectedAt,
                                        const ProcessSource& processes) {
  const auto status = processes.status(claim);
  if (!status || !isOurs(*status, processes) || status->nsPids.size() != 1) return std::nullopt;
  auto details = processes.details(claim);
  if (!details || details->startedAt > connectedAt) return std::nullopt;
  return Candidate{claim, std::move(*details)};
}

// Processes of inner pid namespaces that know themselves under the claimed pid.
std::vector<Candidate> namespacedProcesses(std::int32_t claim, double connectedAt,
                                           std::string_view application, const ProcessSource& processes) {
  std::vector<Candidate> found;
  for (const std::int32_t pid : processes.pids()) {
    const auto status = processes.status(pid);
    if (!status || status->nsPids.size() < 2 || status->nsPids.back() != claim) continue;
    if (!isOurs(*status, processes)) continue;
    auto details = processes.details(pid);
    if (!details || details->startedAt > connectedAt) continue;
    if (!application.empty() && !isScopeOfApplication(details->cgroup, application)) continue;
    found.push_back({pid, std::move(*details)});
  }
  return found;
}

// The scope names of sandboxed applications escape everything that a unit name gives a meaning.
std::string escapedForUnitName(std::string_view text) {
  std::string escaped;
  for (const char character : text) {
    if (character == '-') {
      escaped += "\\x2d";
    } else {
      escaped += character;
    }
  }
  return escaped;
}

}  // namespace

bool isPulseClient(const GraphClient& client) {
  return propertyText(client.properties, "client.api") == "pipewire-pulse";
}

bool isScopeOfApplication(std::string_view cgroup, std::string_view application) {
  const std::string_view unit = cgroup.substr(cgroup.rfind('/') + 1);
  if (!unit.ends_with(".scope")) return false;
  for (const std::string& name : {escapedForUnitName(application), std::string{application}}) {
    if (unit.starts_with("app-flatpak-" + name + "-") || unit.starts_with("flatpak-" + name + "-"))
      return true;
  }
  return false;
}

std::optional<std::int32_t> processOfClient(const GraphClient& client, const ProcessSource& processes) {
  if (!isPulseClient(client)) return pidProperty(client.properties, "pipewire.sec.pid");
  const auto claim = pidProperty(client.properties, "application.process.id");
  if (!claim) return std::nullopt;

  const auto application = propertyText(client.properties, "pipewire.access.portal.app_id");
  const auto binary = propertyText(client.properties, "application.process.binary");
  // A sandboxed application never lives in our namespace, whoever has that pid here.
  const auto claimed =
      application.empty() ? claimedProcess(*claim, client.seenAt, processes) : std::optional<Candidate>{};
  // The usual case, settled without a walk over all processes.
  if (claimed && claimed->details.executable == binary) return claimed->pid;

  std::vector<Candidate> candidates = namespacedProcesses(*claim, client.seenAt, application, processes);
  if (claimed && candidates.empty()) return claimed->pid;
  if (!claimed && candidates.size() == 1) return candidates.front().pid;

  // Several processes answer to the pid: the one that runs the program the client says it is.
  std::erase_if(candidates, [&](const Candidate& each) { return each.details.executable != binary; });
  if (candidates.size() == 1) return candidates.front().pid;
  return claimed ? std::optional{claimed->pid} : std::nullopt;
}

}  // namespace monitor::platform
