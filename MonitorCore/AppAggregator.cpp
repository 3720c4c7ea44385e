// SPDX-License-Identifier: MIT
#include "MonitorCore/AppAggregator.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "MonitorCore/ProcessForest.h"

namespace monitor::AppAggregator {
namespace {

constexpr std::size_t kNone = ProcessForest::kNone;

struct Group {
  std::string id;
  std::size_t representative = kNone;
  std::size_t begin = 0;  // of its members among all
  std::size_t size = 0;
};

// The apps in the order of their first members, and the members app by app, each in input order. A map would
// hand the apps over in the order of its buckets, and reading the members would jump through the whole
// sample: that is what a large sample spends its time on.
struct Groups {
  std::vector<Group> list;
  std::vector<std::size_t> members;
};

// Whether no two fallback identities of the sample are equal, and no bundle is called like one. It is always
// so, unless somebody makes the sample up.
bool fallbackIdentitiesAreUnique(const std::vector<ProcessSample>& processes, const ProcessForest& forest) {
  for (std::size_t index = 0; index < processes.size(); ++index) {
    const auto& bundleID = processes[index].bundleID;
    if (forest.isRepeat(index) || (bundleID && bundleID->starts_with("process:"))) return false;
  }
  return true;
}

Groups groupsOf(const std::vector<ProcessSample>& processes, const std::vector<std::size_t>& holders,
                bool uniqueFallbacks) {
  Groups groups;
  groups.list.reserve(processes.size());  // the keys below refer to its texts
  std::unordered_map<std::string_view, std::size_t> numbers;
  std::vector<std::size_t> groupOf(processes.size());
  for (std::size_t index = 0; index < processes.size(); ++index) {
    const std::size_t holder = holders[index];
    const bool fallback = holder == kNone;
    std::size_t number = groups.list.size();
    if (fallback && uniqueFallbacks) {
      groups.list.push_back({fallbackIdentity(processes[index].key)});
    } else {
      std::string id = fallback ? fallbackIdentity(processes[index].key) : *processes[holder].bundleID;
      const auto known = numbers.find(id);
      if (known != numbers.end()) {
        number = known->second;
      } else {
        groups.list.push_back({std::move(id)});
        numbers.emplace(groups.list.back().id, number);
      }
    }
    groupOf[index] = number;
    groups.list[number].representative = fallback ? index : holder;
    ++groups.list[number].size;
  }
  std::size_t begin = 0;
  for (Group& group : groups.list) {
    group.begin = begin;
    begin += std::exchange(group.size, 0);
  }
  groups.members.resize(processes.size());
  for (std::size_t index = 0; index < processes.size(); ++index) {
    Group& group = groups.list[groupOf[index]];
    groups.members[group.begin + group.size++] = index;
  }
  return groups;
}

// Whether the walk from `index` up to its ancestor `end` passes `wanted`, the two ends included.
bool passes(const ProcessForest& forest, std::size_t index, std::size_t end, std::size_t wanted) {
  while (index != wanted && index != end) index = forest.parent(index);
  return index == wanted;
}

// For every process the index of the one whose bundle it counts toward, kNone where there is none.
std::vector<std::size_t> bundleHolders(const std::vector<ProcessSample>& processes,
                                       const ProcessForest& forest) {
  std::vector<bool> hasBundle(processes.size());
  for (std::size_t index = 0; index < processes.size(); ++index) {
    hasBundle[index] = processes[index].bundleID.has_value();
  }
  std::vector<std::size_t> holders = forest.nearestMarked(hasBundle);
  for (std::size_t index = 0; index < processes.size(); ++index) {
    if (!forest.isRepeat(index)) continue;
    if (hasBundle[index]) {
      holders[index] = index;
      continue;
    }
    const std::size_t parent = forest.parent(index);
    const std::size_t holder = parent == kNone ? kNone : holders[parent];
    // A walk that meets its own pid again has come full circle, even where another process stands there.
    if (holder != kNone && !passes(forest, parent, holder, forest.first(index))) holders[index] = holder;
  }
  return holders;
}

template <class Field>
std::optional<double> sum(const std::vector<ProcessSample>& processes, std::span<const std::size_t> members,
                          Field ProcessSample::*field) {
  std::optional<double> total;
  for (const std::size_t member : members) {
    const std::optional<double>& value = processes[member].*field;
    if (value && std::isfinite(*value)) total = total.value_or(0.0) + *value;
  }
  return total;
}

// Takes the members out of `processes`.
AppUsage makeRow(Group& group, std::span<std::size_t> members, std::vector<ProcessSample>& processes) {
  const ProcessSample& representative = processes[group.representative];
  AppUsage row{
      std::move(group.id), representative.name, representative.bundleID, {}, {}, 0, {}, {}, {}, {}, {}};
  row.cpu = sum(processes, members, &ProcessSample::cpu);
  row.diskRead = sum(processes, members, &ProcessSample::diskRead);
  row.diskWrite = sum(processes, members, &ProcessSample::diskWrite);
  row.download = sum(processes, members, &ProcessSample::download);
  row.upload = sum(processes, members, &ProcessSample::upload);
  row.energy = sum(processes, members, &ProcessSample::energy);
  for (const std::size_t member : members) row.memory += processes[member].memory;  // wraps around

  std::stable_sort(members.begin(), members.end(), [&processes](std::size_t left, std::size_t right) {
    return processes[left].key.pid < processes[right].key.pid;
  });
  row.processes.reserve(members.size());
  for (const std::size_t member : members) row.processes.push_back(std::move(processes[member]));
  return row;
}

// Rows in order, each moved once: sorting the rows themselves would move every one of them many times.
std::vector<AppUsage> sorted(std::vector<AppUsage> rows) {
  struct Place {
    double cpu;
    std::size_t index;
  };
  std::vector<Place> order;
  order.reserve(rows.size());
  for (std::size_t index = 0; index < rows.size(); ++index)
    order.push_back({rows[index].cpu.value_or(-1.0), index});
  std::sort(order.begin(), order.end(), [&rows](const Place& left, const Place& right) {
    return left.cpu != right.cpu ? left.cpu > right.cpu : rows[left.index].id < rows[right.index].id;
  });
  std::vector<AppUsage> result;
  result.reserve(rows.size());
  for (const Place& place : order) result.push_back(std::move(rows[place.index]));
  return result;
}

}  // namespace

std::vector<AppUsage> group(std::vector<ProcessSample> processes) {
  const ProcessForest forest(processes);
  Groups groups =
      groupsOf(processes, bundleHolders(processes, forest), fallbackIdentitiesAreUnique(processes, forest));
  const std::span<std::size_t> members(groups.members);
  std::vector<AppUsage> rows;
  rows.reserve(groups.list.size());
  for (Group& group : groups.list) {
    rows.push_back(makeRow(group, members.subspan(group.begin, group.size), processes));
  }
  return sorted(std::move(rows));
}

std::vector<ProcessSample> processesOf(const std::vector<AppUsage>& apps) {
  std::vector<ProcessSample> processes;
  for (const AppUsage& app : apps) {
    processes.insert(processes.end(), app.processes.begin(), app.processes.end());
  }
  std::stable_sort(processes.begin(), processes.end(),
                   [](const auto& left, const auto& right) { return left.key.pid < right.key.pid; });
  return processes;
}

}  // namespace monitor::AppAggregator
