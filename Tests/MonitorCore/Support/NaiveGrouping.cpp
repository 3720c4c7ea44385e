// SPDX-License-Identifier: MIT
#include "Tests/MonitorCore/Support/NaiveGrouping.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace monitor::testing {
namespace {

using Processes = std::vector<ProcessSample>;
using ByPid = std::map<std::int32_t, ProcessSample>;

ByPid byPid(const Processes& processes) {
  ByPid table;
  for (const ProcessSample& process : processes) {
    if (table.count(process.key.pid) == 0) table[process.key.pid] = process;
  }
  return table;
}

std::string fallback(const ProcessKey& key) {
  return "process:" + std::to_string(key.pid) + ":" + std::to_string(key.start);
}

// The app key of one process and the process that labels the app.
std::pair<std::string, ProcessSample> appKey(const ProcessSample& process, const ByPid& table) {
  const std::pair<std::string, ProcessSample> onItsOwn{fallback(process.key), process};
  ProcessSample current = process;
  std::set<std::int32_t> visited;
  while (true) {
    if (current.bundleID) return {*current.bundleID, current};
    if (visited.count(current.key.pid) > 0) return onItsOwn;
    visited.insert(current.key.pid);
    const auto parent = table.find(current.parentPID);
    if (parent == table.end()) return onItsOwn;
    if (visited.count(parent->second.key.pid) > 0) return onItsOwn;
    if (current.key.start < parent->second.key.start) return onItsOwn;
    if (parent->second.owner != process.owner) return onItsOwn;
    current = parent->second;
  }
}

std::optional<double> sumOf(const Processes& members, std::optional<double> ProcessSample::*field) {
  std::vector<double> values;
  for (const ProcessSample& member : members) {
    if ((member.*field).has_value() && std::isfinite(*(member.*field))) values.push_back(*(member.*field));
  }
  if (values.empty()) return std::nullopt;
  double sum = 0;
  for (const double value : values) sum += value;
  return sum;
}

void sortByPid(Processes& processes) {
  std::stable_sort(processes.begin(), processes.end(),
                   [](const ProcessSample& a, const ProcessSample& b) { return a.key.pid < b.key.pid; });
}

bool descends(const ProcessSample& process, const ProcessSample& root, const ByPid& table) {
  ProcessSample current = process;
  std::set<std::pair<std::int32_t, std::uint64_t>> visited;
  while (true) {
    if (!visited.insert({current.key.pid, current.key.start}).second) return false;
    if (current.key == root.key) return true;
    const auto parent = table.find(current.parentPID);
    if (parent == table.end()) return false;
    if (parent->second.owner != process.owner) return false;
    if (current.key.start < parent->second.key.start) return false;
    current = parent->second;
  }
}

bool descendsFromAny(const ProcessSample& process, const Processes& roots, const ByPid& table) {
  for (const ProcessSample& root : roots) {
    if (descends(process, root, table)) return true;
  }
  return false;
}

}  // namespace

std::vector<AppUsage> naiveApps(const Processes& processes) {
  const ByPid table = byPid(processes);
  std::map<std::string, Processes> groups;
  std::map<std::string, ProcessSample> representatives;
  for (const ProcessSample& process : processes) {
    const auto [key, representative] = appKey(process, table);
    groups[key].push_back(process);
    representatives[key] = representative;
  }
  std::vector<AppUsage> rows;
  for (const auto& [key, members] : groups) {
    AppUsage row;
    row.id = key;
    row.name = representatives[key].name;
    row.bundleID = representatives[key].bundleID;
    row.processes = members;
    sortByPid(row.processes);
    for (const ProcessSample& member : members) row.memory += member.memory;
    row.cpu = sumOf(members, &ProcessSample::cpu);
    row.diskRead = sumOf(members, &ProcessSample::diskRead);
    row.diskWrite = sumOf(members, &ProcessSample::diskWrite);
    row.download = sumOf(members, &ProcessSample::download);
    row.upload = sumOf(members, &ProcessSample::upload);
    row.energy = sumOf(members, &ProcessSample::energy);
    rows.push_back(row);
  }
  std::sort(rows.begin(), rows.end(), [](const AppUsage& a, const AppUsage& b) {
    const double cpuA = a.cpu ? *a.cpu : -1;
    const double cpuB = b.cpu ? *b.cpu : -1;
    if (cpuA > cpuB) return true;
    if (cpuA < cpuB) return false;
    return a.id < b.id;
  });
  return rows;
}

std::vector<MonitorProject> naiveProjects(const Processes& processes) {
  const ByPid table = byPid(processes);
  Processes listeners;
  for (const ProcessSample& process : processes) {
    if (!process.ports.empty()) listeners.push_back(process);
  }
  Processes roots;
  for (const ProcessSample& listener : listeners) {
    bool inner = false;
    for (const ProcessSample& other : listeners) {
      if (!(other.key == listener.key) && descends(listener, other, table)) inner = true;
    }
    if (!inner) roots.push_back(listener);
  }
  std::map<std::string, Processes> grouped;
  for (const ProcessSample& root : roots) {
    grouped[root.directory ? *root.directory : fallback(root.key)].push_back(root);
  }
  std::vector<MonitorProject> projects;
  for (const auto& [key, members] : grouped) {
    MonitorProject project;
    project.id = key;
    project.folder = members.front().directory;
    project.roots = members;
    for (const ProcessSample& process : processes) {
      if (descendsFromAny(process, members, table)) project.processes.push_back(process);
    }
    sortByPid(project.processes);
    projects.push_back(project);
  }
  return projects;
}

}  // namespace monitor::testing
