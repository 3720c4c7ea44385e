// SPDX-License-Identifier: MIT
#include "MonitorCore/ProjectGrouper.h"

#include <algorithm>
#include <map>
#include <unordered_map>
#include <utility>

#include "MonitorCore/ProcessForest.h"

namespace monitor::ProjectGrouper {
namespace {

using Index = ProcessForest::Index;
constexpr Index kNone = ProcessForest::kNone;

struct Project {
  std::vector<Index> roots;
  std::vector<Index> processes;  // in input order; never holds a process twice
};

// By the key of a root, its projects. Processes that repeat a key may be roots of different projects.
using RootProjects = std::unordered_map<ProcessKey, std::vector<Project*>>;

// For every process that is not a repeat: the nearest process at or above it with the key of one of `wanted`.
// Only the first process of a pid can be met on a walk up, so that no other one's key matters.
std::vector<Index> nearestWithKeyOf(const std::vector<Index>& wanted,
                                    const std::vector<ProcessSample>& processes,
                                    const ProcessForest& forest) {
  std::vector<bool> marked(processes.size());
  for (const Index index : wanted) {
    const Index first = forest.first(index);
    if (processes[first].key == processes[index].key) marked[first] = true;
  }
  return forest.nearestMarked(marked);
}

// The listening processes that descend from no other listening process, in input order.
std::vector<Index> findRoots(const std::vector<ProcessSample>& processes, const ProcessForest& forest) {
  std::vector<Index> listeners;
  for (Index index = 0; index < forest.size(); ++index) {
    if (!processes[index].ports.empty()) listeners.push_back(index);
  }
  const std::vector<Index> nearest = nearestWithKeyOf(listeners, processes, forest);
  std::vector<Index> roots;
  for (const Index index : listeners) {
    const Index parent = forest.parent(index);
    const Index outer = parent == kNone ? kNone : nearest[parent];
    // Meeting its own key again means that the walk came full circle without another listener.
    if (outer == kNone || processes[outer].key == processes[index].key) roots.push_back(index);
  }
  return roots;
}

std::string projectKey(const ProcessSample& root) {
  return root.directory ? *root.directory : fallbackIdentity(root.key);
}

// Puts every process into the projects of all the roots that it is or descends from.
class Membership {
 public:
  Membership(const std::vector<ProcessSample>& processes, const ProcessForest& forest,
             const std::vector<Index>& roots, const RootProjects& projects)
      : processes_(processes),
        forest_(forest),
        projects_(projects),
        nearestRoot_(nearestWithKeyOf(roots, processes, forest)),
        passedBy_(processes.size(), kNone) {}

  void assign(Index process) {
    if (forest_.isRepeat(process)) {
      assignRepeat(process);
      return;
    }
    for (Index root = nearestRoot_[process]; root != kNone && passedBy_[root] != process;
         root = rootAbove(root)) {
      passedBy_[root] = process;
      join(process, processes_[root].key);
    }
  }

 private:
  // Step by step: the walk of a repeat also ends at the process whose key it repeats, root or not.
  void assignRepeat(Index process) {
    const ProcessKey& own = processes_[process].key;
    join(process, own);
    for (Index index = forest_.parent(process);
         index != kNone && passedBy_[index] != process && processes_[index].key != own;
         index = forest_.parent(index)) {
      passedBy_[index] = process;
      join(process, processes_[index].key);
    }
  }

  [[nodiscard]] Index rootAbove(Index root) const {
    const Index parent = forest_.parent(root);
    return parent == kNone ? kNone : nearestRoot_[parent];
  }

  void join(Index process, const ProcessKey& root) {
    const auto found = projects_.find(root);
    if (found == projects_.end()) return;
    for (Project* project : found->second) {
      std::vector<Index>& members = project->processes;
      if (members.empty() || members.back() != process) members.push_back(process);
    }
  }

  const std::vector<ProcessSample>& processes_;
  const ProcessForest& forest_;
  const RootProjects& projects_;
  const std::vector<Index> nearestRoot_;
  std::vector<Index> passedBy_;  // the last process whose walk came past; kNone before the first
};

std::vector<ProcessSample> copies(const std::vector<Index>& indices,
                                  const std::vector<ProcessSample>& processes) {
  std::vector<ProcessSample> samples;
  samples.reserve(indices.size());
  for (const Index index : indices) samples.push_back(processes[index]);
  return samples;
}

MonitorProject makeProject(const std::string& id, Project& project,
                           const std::vector<ProcessSample>& processes) {
  std::stable_sort(project.processes.begin(), project.processes.end(), [&processes](Index left, Index right) {
    return processes[left].key.pid < processes[right].key.pid;
  });
  return {id, processes[project.roots.front()].directory, copies(project.roots, processes),
          copies(project.processes, processes)};
}

}  // namespace

std::vector<MonitorProject> groups(const std::vector<ProcessSample>& processes) {
  const ProcessForest forest(processes);
  std::map<std::string, Project> byId;
  RootProjects byRoot;
  const std::vector<Index> roots = findRoots(processes, forest);
  for (const Index root : roots) {
    Project& project = byId[projectKey(processes[root])];
    project.roots.push_back(root);
    byRoot[processes[root].key].push_back(&project);
  }
  if (byId.empty()) return {};

  Membership membership(processes, forest, roots, byRoot);
  for (Index index = 0; index < forest.size(); ++index) membership.assign(index);

  std::vector<MonitorProject> projects;
  projects.reserve(byId.size());
  for (auto& [id, project] : byId) projects.push_back(makeProject(id, project, processes));
  return projects;
}

}  // namespace monitor::ProjectGrouper
