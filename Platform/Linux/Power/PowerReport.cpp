// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/PowerReport.h"

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>

namespace monitor::platform {
namespace {

// One process in both snapshots.
struct Survivor {
  const ProcessActivity* before;
  const ProcessActivity* after;
};

std::vector<Survivor> survivorsOf(const PowerInterval& interval) {
  std::unordered_map<std::int32_t, const ProcessActivity*> earlier;
  for (const ProcessActivity& process : interval.before.processes) earlier.emplace(process.pid, &process);
  std::vector<Survivor> survivors;
  for (const ProcessActivity& process : interval.after.processes) {
    const auto found = earlier.find(process.pid);
    if (found != earlier.end() && found->second->startTicks == process.startTicks) {
      survivors.push_back({found->second, &process});
    }
  }
  return survivors;
}

// In the order in which the processes began: what several hold belongs to the first of them.
std::vector<std::size_t> byStart(const std::vector<Survivor>& survivors) {
  std::vector<std::size_t> order(survivors.size());
  for (std::size_t index = 0; index < order.size(); ++index) order[index] = index;
  std::stable_sort(order.begin(), order.end(), [&](std::size_t one, std::size_t other) {
    return survivors[one].after->startTicks < survivors[other].after->startTicks;
  });
  return order;
}

struct Traffic {
  double received = 0.0;
  double sent = 0.0;
};

// What the connections carried meanwhile, by the inodes of their sockets.
class TrafficByInode {
 public:
  explicit TrafficByInode(const PowerInterval& interval) {
    for (const TcpSocket& socket : *interval.before.sockets) earlier_.emplace(socket.cookie, socket);
    // One that ended late may still be in the list: its last word counts, and only once.
    for (const TcpSocket& socket : interval.endedSockets) add(socket);
    for (const TcpSocket& socket : *interval.after.sockets) add(socket);
  }

  [[nodiscard]] const Traffic* of(std::uint64_t inode) const {
    const auto found = traffic_.find(inode);
    return found == traffic_.end() ? nullptr : &found->second;
  }

 private:
  void add(const TcpSocket& socket) {
    if (!seen_.insert(socket.cookie).second) return;
    TcpSocket start;
    start.inode = socket.inode;
    const auto found = earlier_.find(socket.cookie);
    if (found != earlier_.end()) start = found->second;
    // A closed socket has no inode any more.
    const std::uint64_t inode = socket.inode != 0 ? socket.inode : start.inode;
    if (inode == 0 || socket.received < start.received || socket.sent < start.sent) return;
    Traffic& traffic = traffic_[inode];
    traffic.received += static_cast<double>(socket.received - start.received);
    traffic.sent += static_cast<double>(socket.sent - start.sent);
  }

  std::unordered_map<std::uint64_t, TcpSocket> earlier_;
  std::set<std::uint64_t> seen_;
  std::unordered_map<std::uint64_t, Traffic> traffic_;
};

void addTraffic(const PowerInterval& interval, const std::vector<Survivor>& survivors,
                std::vector<TaskReport>& tasks) {
  if (!interval.before.sockets || !interval.after.sockets) return;
  const TrafficByInode traffic(interval);
  std::set<std::uint64_t> owned;
  for (const std::size_t index : byStart(survivors)) {
    const auto [before, after] = survivors[index];
    if (!before->socketsKnown || !after->socketsKnown) continue;
    std::set<std::uint64_t> inodes(before->sockets.begin(), before->sockets.end());
    inodes.insert(after->sockets.begin(), after->sockets.end());
    for (const std::uint64_t inode : inodes) {
      const Traffic* carried = traffic.of(inode);
      if (carried == nullptr || !owned.insert(inode).second) continue;
      tasks[index].received = tasks[index].received.value_or(0.0) + carried->received;
      tasks[index].sent = tasks[index].sent.value_or(0.0) + carried->sent;
    }
  }
}

DrmClients clientsOf(const std::vector<ProcessActivity>& processes) {
  DrmClients clients;
  for (const ProcessActivity& process : processes) {
    clients.insert(process.drmClients.begin(), process.drmClients.end());
  }
  return clients;
}

std::vector<double> graphicsSeconds(const PowerInterval& interval, const std::vector<Survivor>& survivors) {
  const DrmClients before = clientsOf(interval.before.processes);
  std::vector<double> seconds(survivors.size());
  std::set<DrmClientKey> owned;
  for (const std::size_t index : byStart(survivors)) {
    for (const auto& client : survivors[index].after->drmClients) {
      if (owned.insert(client.first).second) {
        seconds[index] += clientBusySeconds(before, client, secondsOf(interval));
      }
    }
  }
  return seconds;
}

}  // namespace

double secondsOf(const PowerInterval& interval) {
  return interval.after.time - interval.before.time;
}

std::vector<TaskReport> taskReports(const PowerInterval& interval) {
  constexpr double kOneCore = 100.0;
  const double seconds = secondsOf(interval);
  if (!(seconds > 0)) return {};
  const std::vector<Survivor> survivors = survivorsOf(interval);
  const std::vector<double> graphics = graphicsSeconds(interval, survivors);
  std::vector<TaskReport> tasks;
  tasks.reserve(survivors.size());
  for (std::size_t index = 0; index < survivors.size(); ++index) {
    const auto [before, after] = survivors[index];
    TaskReport task;
    task.pid = after->pid;
    task.name = after->name;
    // The kernel's division of a process's time may step back by a tick.
    const std::uint64_t ticks = after->cpuTicks - std::min(before->cpuTicks, after->cpuTicks);
    task.cpuSeconds = static_cast<double>(ticks) / interval.ticksPerSecond;
    task.energyImpact = kOneCore * (task.cpuSeconds + graphics[index]) / seconds;
    tasks.push_back(std::move(task));
  }
  addTraffic(interval, survivors, tasks);
  return tasks;
}

std::optional<double> graphicsShare(const PowerInterval& interval) {
  GraphicsInterval graphics;
  graphics.looks.push_back(interval.before.cards);
  graphics.looks.insert(graphics.looks.end(), interval.looksBetween.begin(), interval.looksBetween.end());
  graphics.looks.push_back(interval.after.cards);
  graphics.before = clientsOf(interval.before.processes);
  graphics.after = clientsOf(interval.after.processes);
  graphics.seconds = secondsOf(interval);
  return graphicsBusyShare(graphics);
}

}  // namespace monitor::platform
