// SPDX-License-Identifier: MIT
#include "Tools/powermetrics/PropertyListOutput.h"

#include <plist/plist.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <tuple>
#include <vector>

namespace monitor::powermetrics {
namespace {

constexpr double kNanosecondsPerSecond = 1e9;
constexpr double kMilliwattsPerWatt = 1e3;

// A node that no list owns yet.
struct FreeNode {
  void operator()(void* node) const { plist_free(node); }
};
using Node = std::unique_ptr<void, FreeNode>;

Node dictionary() {
  return Node(plist_new_dict());
}

void set(const Node& owner, const char* key, Node value) {
  plist_dict_set_item(owner.get(), key, value.release());
}

void setReal(const Node& owner, const char* key, std::optional<double> value) {
  if (value && std::isfinite(*value)) set(owner, key, Node(plist_new_real(*value)));
}

void setWhole(const Node& owner, const char* key, std::optional<double> value) {
  constexpr double kBeyondLargest = 0x1p64;
  if (value && *value >= 0.0 && *value < kBeyondLargest)
    set(owner, key, Node(plist_new_uint(static_cast<std::uint64_t>(*value))));
}

void setSection(const Node& root, const char* key, Node section) {
  if (plist_dict_get_size(section.get()) > 0) set(root, key, std::move(section));
}

using platform::TaskReport;

// By pid again, whichever were kept.
std::vector<TaskReport> busiest(std::vector<TaskReport> tasks) {
  if (tasks.size() <= kMostTasks) return tasks;
  const auto weight = [](const TaskReport& task) {
    return std::tuple(task.energyImpact, task.received.value_or(0.0) + task.sent.value_or(0.0));
  };
  const auto end = tasks.begin() + static_cast<std::ptrdiff_t>(kMostTasks);
  std::nth_element(tasks.begin(), end, tasks.end(), [&](const TaskReport& one, const TaskReport& other) {
    return weight(one) > weight(other);
  });
  tasks.erase(end, tasks.end());
  std::sort(tasks.begin(), tasks.end(),
            [](const TaskReport& one, const TaskReport& other) { return one.pid < other.pid; });
  return tasks;
}

Node taskNode(const TaskReport& task, const Options& options) {
  Node node = dictionary();
  set(node, "pid", Node(plist_new_uint(static_cast<std::uint64_t>(task.pid))));
  set(node, "name", Node(plist_new_string(task.name.c_str())));
  setWhole(node, "cputime_ns", std::round(task.cpuSeconds * kNanosecondsPerSecond));
  if (options.processNetstats) {
    setWhole(node, "network_recv_bytes", task.received);
    setWhole(node, "network_send_bytes", task.sent);
  }
  if (options.processEnergy) setReal(node, "energy_impact", task.energyImpact);
  return node;
}

Node taskNodes(const std::vector<TaskReport>& tasks, const Options& options) {
  Node list(plist_new_array());
  for (const TaskReport& task : busiest(tasks))
    plist_array_append_item(list.get(), taskNode(task, options).release());
  return list;
}

Node sensors(const platform::PowerReading& reading) {
  Node smc = dictionary();
  setReal(smc, "cpu_die", reading.cpuCelsius);
  setReal(smc, "gpu_die", reading.gpuCelsius);
  Node fans(plist_new_array());
  for (const double speed : reading.fanSpeeds) {
    Node fan = dictionary();
    setReal(fan, "speed", speed);
    plist_array_append_item(fans.get(), fan.release());
  }
  if (!reading.fanSpeeds.empty()) set(smc, "fans", std::move(fans));
  return smc;
}

Node rootOf(const platform::PowerReading& reading, const Options& options, Date at) {
  Node root = dictionary();
  set(root, "is_delta", Node(plist_new_bool(1)));
  setWhole(root, "elapsed_ns", std::round(reading.seconds * kNanosecondsPerSecond));
  // The library counts dates from 2001 too.
  set(root, "timestamp", Node(plist_new_date(static_cast<std::int32_t>(at.secondsSince2001), 0)));
  if (options.tasks) set(root, "tasks", taskNodes(reading.tasks, options));
  if (options.cpuPower) {
    Node processor = dictionary();
    if (reading.packageWatts)
      setReal(processor, "combined_power", *reading.packageWatts * kMilliwattsPerWatt);
    setSection(root, "processor", std::move(processor));
  }
  if (options.gpuPower) {
    Node gpu = dictionary();
    if (reading.gpuShare) setReal(gpu, "idle_ratio", 1.0 - *reading.gpuShare);
    setSection(root, "gpu", std::move(gpu));
  }
  if (options.smc) setSection(root, "smc", sensors(reading));
  return root;
}

}  // namespace

std::string propertyList(const platform::PowerReading& reading, const Options& options, Date at) {
  const Node root = rootOf(reading, options, at);
  char* text = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(root.get(), &text, &length);
  const std::unique_ptr<char, void (*)(void*)> owned(text, std::free);
  if (text == nullptr) throw std::bad_alloc();
  return {text, length};
}

}  // namespace monitor::powermetrics
