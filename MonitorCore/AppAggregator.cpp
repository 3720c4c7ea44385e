// SPDX-License-Identifier: MIT
#include "MonitorCore/AppAggregator.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "MonitorCore/ProcessForest.h"

namespace monitor::AppAggregator {
namespace {

using Index = ProcessForest::Index;
constexpr Index kNone = ProcessForest::kNone;

// Whether the walk from `index` up to its ancestor `end` passes `wanted`, the two ends included.
bool passes(const ProcessForest& forest, Index index, Index end, Index wanted) {
  while (index != wanted && index != end) index = forest.parent(index);
  return index == wanted;
}

// For every process the index of the one whose bundle it counts toward, kNone where there is none.
std::vector<Index> bundleHolders(const std::vector<bool>& hasBundle, const ProcessForest& forest) {
  std::vector<Index> holders = forest.nearestMarked(hasBundle);
  if (!forest.hasRepeats()) return holders;
  for (Index index = 0; index < forest.size(); ++index) {
    if (!forest.isRepeat(index)) continue;
    if (hasBundle[index]) {
      holders[index] = index;
      continue;
    }
    const Index parent = forest.parent(index);
    const Index holder = parent == kNone ? kNone : holders[parent];
    // A walk that meets its own pid again has come full circle, even where another process stands there.
    if (holder != kNone && !passes(forest, parent, holder, forest.first(index))) holders[index] = holder;
  }
  return holders;
}

// An app before its row is built.
struct App {
  std::string id;
  Index representative = kNone;
  Index size = 0;
  std::optional<double> cpu;
};

void addTo(std::optional<double>& total, const std::optional<double>& value) {
  if (value && std::isfinite(*value)) total = total.value_or(0.0) + *value;
}

// Sorts processes into apps, which are numbered in the order of their first members: their members then lie
// near each other in the sample, as far as the sample lets them.
class Sorting {
 public:
  explicit Sorting(const std::vector<ProcessSample>& processes)
      : processes_(processes),
        forest_(processes),
        fallbackMayMeet_(forest_.hasRepeats()),
        holders_(bundleHolders(findBundles(), forest_)) {
    apps_.reserve(bundles_ + static_cast<std::size_t>(std::count(holders_.begin(), holders_.end(), kNone)));
    appOfHolder_.resize(processes.size(), kNone);
    appOf_.reserve(processes.size());
    for (Index index = 0; index < forest_.size(); ++index) add(index);
    sortMembers();
  }

  [[nodiscard]] std::vector<App>& apps() { return apps_; }
  // In input order.
  [[nodiscard]] std::span<Index> members(Index app) {
    return std::span(members_).subspan(begins_[app], apps_[app].size);
  }

 private:
  // Which processes have a bundle identifier. One that looks like the identity of a process without any may
  // be shared with such a process.
  std::vector<bool> findBundles() {
    std::vector<bool> hasBundle(processes_.size());
    for (std::size_t index = 0; index < processes_.size(); ++index) {
      const std::optional<std::string>& bundle = processes_[index].bundleID;
      if (!bundle) continue;
      hasBundle[index] = true;
      ++bundles_;
      if (bundle->starts_with("process:")) fallbackMayMeet_ = true;
    }
    return hasBundle;
  }

  void add(Index index) {
    const Index holder = holders_[index];
    const Index number = holder == kNone ? fallbackApp(index) : appOfBundle(holder);
    App& app = apps_[number];
    app.representative = holder == kNone ? index : holder;
    ++app.size;
    addTo(app.cpu, processes_[index].cpu);
    appOf_.push_back(number);
  }

  Index appOfBundle(Index holder) {
    Index& number = appOfHolder_[holder];
    if (number == kNone) number = appNamed(*processes_[holder].bundleID);
    return number;
  }

  Index fallbackApp(Index index) {
    std::string id = fallbackIdentity(processes_[index].key);
    if (fallbackMayMeet_) return appNamed(keptNames_.emplace_back(std::move(id)));
    apps_.push_back({std::move(id), kNone, 0, {}});
    return static_cast<Index>(apps_.size() - 1);
  }

  // The app of that name, whose text stays where it is.
  Index appNamed(std::string_view id) {
    const auto [entry, isNew] = numbers_.try_emplace(id, static_cast<Index>(apps_.size()));
    if (isNew) apps_.push_back({std::string(id), kNone, 0, {}});
    return entry->second;
  }

  void sortMembers() {
    begins_.reserve(apps_.size());
    Index begin = 0;
    for (const App& app : apps_) {
      begins_.push_back(begin);
      begin += app.size;
    }
    members_.resize(appOf_.size());
    std::vector<Index> next = begins_;
    for (Index index = 0; index < forest_.size(); ++index) members_[next[appOf_[index]]++] = index;
  }

  const std::vector<ProcessSample>& processes_;
  const ProcessForest forest_;
  // Whether the name of a process without a bundle may be another one's too. Else it is not looked up at all.
  bool fallbackMayMeet_;
  std::size_t bundles_ = 0;
  const std::vector<Index> holders_;
  std::vector<App> apps_;
  std::vector<Index> appOf_;        // by process
  std::vector<Index> appOfHolder_;  // so that a name is looked up once for each of its holders
  std::unordered_map<std::string_view, Index> numbers_;  // by name
  std::deque<std::string> keptNames_;
  std::vector<Index> begins_;  // of the members of each app
  std::vector<Index> members_;
};

// The apps by CPU use, most first, then by name. Names mostly differ within their first sixteen bytes, so
// that these are compared first, as two numbers: comparing the names themselves jumps through memory.
class Order {
 public:
  explicit Order(const std::vector<App>& apps) {
    places_.reserve(apps.size());
    for (const App& app : apps) {
      places_.push_back({app.cpu.value_or(-1.0), bytesOf(app.id, 0), bytesOf(app.id, 8),
                         static_cast<Index>(places_.size())});
    }
    std::sort(places_.begin(), places_.end(), [&apps](const Place& left, const Place& right) {
      if (left.cpu != right.cpu) return left.cpu > right.cpu;
      if (left.bytes != right.bytes) return left.bytes < right.bytes;
      if (left.moreBytes != right.moreBytes) return left.moreBytes < right.moreBytes;
      return apps[left.app].id < apps[right.app].id;
    });
  }

  [[nodiscard]] std::size_t size() const { return places_.size(); }
  [[nodiscard]] Index operator[](std::size_t place) const { return places_[place].app; }

 private:
  struct Place {
    double cpu;
    std::uint64_t bytes;
    std::uint64_t moreBytes;
    Index app;
  };

  // Eight bytes of the text, the first one the most significant; zeros behind its end.
  static std::uint64_t bytesOf(std::string_view text, std::size_t from) {
    std::uint64_t bytes = 0;
    for (std::size_t index = from; index < from + 8; ++index) {
      bytes = bytes << 8U | (index < text.size() ? static_cast<unsigned char>(text[index]) : 0U);
    }
    return bytes;
  }

  std::vector<Place> places_;
};

// Takes the members out of `processes`.
void fillRow(AppUsage& row, App& app, std::span<Index> members, std::vector<ProcessSample>& processes) {
  row.id = std::move(app.id);
  row.name = processes[app.representative].name;
  row.bundleID = processes[app.representative].bundleID;
  row.cpu = app.cpu;
  for (const Index member : members) {
    const ProcessSample& process = processes[member];
    row.memory += process.memory;  // wraps around
    addTo(row.diskRead, process.diskRead);
    addTo(row.diskWrite, process.diskWrite);
    addTo(row.download, process.download);
    addTo(row.upload, process.upload);
    addTo(row.energy, process.energy);
  }
  const auto byPid = [&processes](Index left, Index right) {
    return processes[left].key.pid < processes[right].key.pid;
  };
  // Samples mostly come by pid, and a stable sort allocates.
  if (!std::is_sorted(members.begin(), members.end(), byPid)) {
    std::stable_sort(members.begin(), members.end(), byPid);
  }
  row.processes.reserve(members.size());
  for (const Index member : members) row.processes.push_back(std::move(processes[member]));
}

}  // namespace

std::vector<AppUsage> group(std::vector<ProcessSample> processes) {
  return groupAndClear(processes);
}

std::vector<AppUsage> groupAndClear(std::vector<ProcessSample>& processes) {
  Sorting sorting(processes);
  const Order order(sorting.apps());
  std::vector<AppUsage> rows;
  rows.reserve(order.size());
  for (std::size_t place = 0; place < order.size(); ++place) {
    const Index app = order[place];
    fillRow(rows.emplace_back(), sorting.apps()[app], sorting.members(app), processes);
  }
  processes.clear();
  return rows;
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
