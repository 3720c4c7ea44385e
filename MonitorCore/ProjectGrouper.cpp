// SPDX-License-Identifier: MIT
#include "MonitorCore/ProjectGrouper.h"

#include <algorithm>
#include <map>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "MonitorCore/ProcessForest.h"

namespace monitor::ProjectGrouper {
namespace {

constexpr std::size_t kNone = ProcessForest::kNone;

struct Project {
  std::vector<std::size_t> roots;
  std::vector<std::size_t> processes;  // in input order; never holds a process twice
};

// By the key of a root, its projects. Processes that repeat a key may be roots of different projects.
using RootProjects = std::unordered_map<ProcessKey, std::vector<Project*>>;

template <class Keys>
std::vector<std::size_t> nearestWithKeyIn(const Keys& keys, const std::vector<ProcessSample>& processes,
                                          const ProcessForest& forest) {
  std::vector<bool> marked(processes.size());
  for (std::size_t index = 0; index < processes.size(); ++index) {
    marked[index] = keys.contains(processes[index].key);
  }
  return forest.nearestMarked(marked);
}

// The listening processes that descend from no other listening process, in input order.
std::vector<std::size_t> findRoots(const std::vector<ProcessSample>& processes, const ProcessForest& forest) {
  std::unordered_set<ProcessKey> listening;
  for (const ProcessSample& process : processes) {
    if (!process.ports.empty()) listening.insert(process.key);
  }
  const std::vector<std::size_t> nearest = nearestWithKeyIn(listening, processes, forest);
  std::vector<std::size_t> roots;
  for (std::size_t index = 0; index < processes.size(); ++index) {
    if (processes[index].ports.empty()) continue;
    const std::size_t parent = forest.parent(index);
    const std::size_t outer = parent == kNone ? kNone : nearest[parent];
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
             const RootProjects& projects)
      : processes_(processes),
        forest_(forest),
        projects_(projects),
        nearestRoot_(nearestWithKeyIn(projects, processes, forest)),
        passedBy_(processes.size(), kNone) {}

  void assign(std::size_t process) {
    if (forest_.isRepeat(process)) {
      assignRepeat(process);
      return;
    }
    for (std::size_t root = nearestRoot_[process]; root != kNone && passedBy_[root] != process;
         root = rootAbove(root)) {
      passedBy_[root] = process;
      join(process, processes_[root].key);
    }
  }

 private:
  // Step by step: the walk of a repeat also ends at the process whose key it repeats, root or not.
  void assignRepeat(std::size_t process) {
    const ProcessKey& own = processes_[process].key;
    join(process, own);
    for (std::size_t index = forest_.parent(process);
         index != kNone && passedBy_[index] != process && processes_[index].key != own;
         index = forest_.parent(index)) {
      passedBy_[index] = process;
      join(process, processes_[index].key);
    }
  }

  [[nodiscard]] std::size_t rootAbove(std::size_t root) const {
    const std::size_t parent = forest_.parent(root);
    return parent == kNone ? kNone : nearestRoot_[parent];
  }

  void join(std::size_t process, const ProcessKey& root) {
    const auto found = projects_.find(root);
    if (found == projects_.end()) return;
    for (Project* project : found->second) {
      std::vector<std::size_t>& members = project->processes;
      if (members.empty() || members.back() != process) members.push_back(process);
    }
  }

  const std::vector<ProcessSample>& processes_;
  const ProcessForest& forest_;
  const RootProjects& projects_;
  const std::vector<std::size_t> nearestRoot_;
  std::vector<std::size_t> passedBy_;  // the last process whose walk came past; kNone before the first
};

std::vector<ProcessSample> copies(const std::vector<std::size_t>& indices,
                                  const std::vector<ProcessSample>& processes) {
  std::vector<ProcessSample> samples;
  samples.reserve(indices.size());
  for (const std::size_t index : indices) samples.push_back(processes[index]);
  return samples;
}

MonitorProject makeProject(const std::string& id, Project& project,
                           const std::vector<ProcessSample>& processes) {
  std::stable_sort(project.processes.begin(), project.processes.end(),
                   [&processes](std::size_t left, std::size_t right) {
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
  for (const std::size_t root : findRoots(processes, forest)) {
    Project& project = byId[projectKey(processes[root])];
    project.roots.push_back(root);
    byRoot[processes[root].key].push_back(&project);
  }
  if (byId.empty()) return {};

  Membership membership(processes, forest, byRoot);
  for (std::size_t index = 0; index < processes.size(); ++index) membership.assign(index);

  std::vector<MonitorProject> projects;
  projects.reserve(byId.size());
  for (auto& [id, project] : byId) projects.push_back(makeProject(id, project, processes));
  return projects;
}

}  // namespace monitor::ProjectGrouper
