// SPDX-License-Identifier: MIT
#include "Tools/vesk/Top/TopState.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <tuple>

#include "Tools/vesk/TextWidth.h"

namespace monitor::vesk {
namespace {

bool owns(const AppUsage& app, const PlayingProgram& program) {
  if (app.id == program.id) return true;
  // A player without an identity of its own counts toward the app that started it.
  return std::any_of(app.processes.begin(), app.processes.end(), [&program](const ProcessSample& process) {
    return fallbackIdentity(process.key) == program.id ||
           std::find(program.processes.begin(), program.processes.end(), process.key) !=
               program.processes.end();
  });
}

// Of several the one that sounds, and of those the one that is turned down furthest.
std::optional<PlayingProgram> playingOf(const AppUsage& app, const std::vector<PlayingProgram>& all) {
  const PlayingProgram* best = nullptr;
  for (const PlayingProgram& program : all) {
    if (!owns(app, program)) continue;
    if (best == nullptr ||
        std::tuple(!program.sounding, program.gain) < std::tuple(!best->sounding, best->gain)) {
      best = &program;
    }
  }
  return best != nullptr ? std::optional(*best) : std::nullopt;
}

TopRow appRow(const AppUsage& app, const std::vector<PlayingProgram>& playing) {
  TopRow row;
  row.name = printable(app.name);
  row.id = printable(app.id);
  row.cpu = app.cpu;
  row.memory = app.memory;
  row.diskRead = app.diskRead;
  row.diskWrite = app.diskWrite;
  row.download = app.download;
  row.upload = app.upload;
  row.energy = app.energy;
  row.processes = app.processes.size();
  row.playing = playingOf(app, playing);
  return row;
}

void add(std::optional<double>& sum, const std::optional<double>& value) {
  if (value && std::isfinite(*value)) sum = sum.value_or(0.0) + *value;
}

std::string portsOf(const MonitorProject& project) {
  std::set<std::int64_t> ports;
  for (const ProcessSample& root : project.roots) ports.insert(root.ports.begin(), root.ports.end());
  return fmt::format("{}", fmt::join(ports, " "));
}

TopRow projectRow(const MonitorProject& project, const ProjectActivityTracker::Seconds& idle) {
  TopRow row;
  row.name =
      printable(project.folder.value_or(project.roots.empty() ? project.id : project.roots.front().name));
  row.id = printable(project.id);
  row.processes = project.processes.size();
  row.ports = portsOf(project);
  for (const ProcessSample& process : project.processes) {
    add(row.cpu, process.cpu);
    add(row.diskRead, process.diskRead);
    add(row.diskWrite, process.diskWrite);
    add(row.download, process.download);
    add(row.upload, process.upload);
    add(row.energy, process.energy);
    row.memory += process.memory;
  }
  for (const ProcessSample& root : project.roots) {
    const auto seconds = idle.find(root.key);
    const double value = seconds == idle.end() ? 0.0 : seconds->second;
    row.idleSeconds = std::min(row.idleSeconds.value_or(value), value);
  }
  return row;
}

// What the row is sorted by; -1 below every figure. Never NaN, which has no place in an order.
double weight(const TopRow& row, TopSort sort) {
  const auto known = [](double value) { return std::isnan(value) ? -1.0 : value; };
  switch (sort) {
    case TopSort::Cpu:
      return known(row.cpu.value_or(-1.0));
    case TopSort::Memory:
      return static_cast<double>(row.memory);
    case TopSort::Disk:
      if (!row.diskRead && !row.diskWrite) return -1.0;
      return known(row.diskRead.value_or(0.0) + row.diskWrite.value_or(0.0));
  }
  return -1.0;
}

}  // namespace

std::vector<TopRow> topRows(const TopState& state) {
  std::vector<TopRow> rows;
  if (!state.data) return rows;
  const TopData& data = *state.data;
  if (state.projects) {
    for (const MonitorProject& project : data.projects) rows.push_back(projectRow(project, data.idle));
  } else {
    for (const AppUsage& app : data.snapshot.apps) rows.push_back(appRow(app, data.playing));
  }
  std::sort(rows.begin(), rows.end(), [&state](const TopRow& left, const TopRow& right) {
    const double leftWeight = weight(left, state.sort);
    const double rightWeight = weight(right, state.sort);
    if (leftWeight != rightWeight) return leftWeight > rightWeight;
    return std::tie(left.name, left.id) < std::tie(right.name, right.id);
  });
  return rows;
}

}  // namespace monitor::vesk
