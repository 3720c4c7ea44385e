// SPDX-License-Identifier: MIT
#include "Tools/vesk/Top/TopState.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <tuple>
#include <unordered_map>

#include "Tools/vesk/TextWidth.h"

namespace monitor::vesk {
namespace {

// The programs by what they are found by.
class Players {
 public:
  explicit Players(const std::vector<PlayingProgram>& all) {
    for (const PlayingProgram& program : all) {
      keepBetter(byId_[program.id], &program);
      for (const ProcessKey& key : program.processes) keepBetter(byKey_[key], &program);
    }
  }

  [[nodiscard]] std::optional<PlayingProgram> of(const AppUsage& app) const {
    if (byId_.empty()) return std::nullopt;
    const PlayingProgram* best = nullptr;
    keepBetter(best, find(byId_, app.id));
    // A player without an identity of its own counts toward the app that started it.
    for (const ProcessSample& process : app.processes) {
      keepBetter(best, find(byId_, fallbackIdentity(process.key)));
      keepBetter(best, find(byKey_, process.key));
    }
    return best != nullptr ? std::optional(*best) : std::nullopt;
  }

 private:
  // Of several the one that sounds, and of those the one that is turned down furthest.
  static void keepBetter(const PlayingProgram*& best, const PlayingProgram* other) {
    if (other == nullptr) return;
    if (best == nullptr ||
        std::tuple(!other->sounding, other->gain) < std::tuple(!best->sounding, best->gain)) {
      best = other;
    }
  }
  template <class Map>
  static const PlayingProgram* find(const Map& map, const typename Map::key_type& key) {
    const auto found = map.find(key);
    return found == map.end() ? nullptr : found->second;
  }

  std::unordered_map<std::string, const PlayingProgram*> byId_;
  std::unordered_map<ProcessKey, const PlayingProgram*> byKey_;
};

TopRow appRow(const AppUsage& app, const Players& players) {
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
  row.playing = players.of(app);
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
    const Players players(data.playing);
    for (const AppUsage& app : data.snapshot.apps) rows.push_back(appRow(app, players));
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
