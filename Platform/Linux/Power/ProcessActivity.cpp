// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/ProcessActivity.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>

#include "Platform/Linux/Process/BoundedFile.h"
#include "Platform/Linux/Process/ListeningSockets.h"
#include "Platform/Linux/Process/ProcessStat.h"

namespace monitor::platform {
namespace {

constexpr std::size_t kLargestStat = 4'096;
constexpr std::size_t kLargestCommand = 256;
constexpr std::size_t kLargestDescription = 16'384;

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};
using Folder = std::unique_ptr<DIR, CloseFolder>;

std::optional<std::int32_t> pidOf(std::string_view name) {
  std::int32_t pid = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
  if (error != std::errc() || end != name.data() + name.size() || pid <= 0) return std::nullopt;
  return pid;
}

std::vector<std::int32_t> pidsBelow(const std::string& proc) {
  std::vector<std::int32_t> pids;
  const Folder folder(::opendir(proc.c_str()));
  if (folder == nullptr) return pids;
  while (const dirent* entry = ::readdir(folder.get())) {
    if (const auto pid = pidOf(entry->d_name)) pids.push_back(*pid);
  }
  std::sort(pids.begin(), pids.end());
  return pids;
}

// A process chooses its name: only what every reader of the output can print is kept of it.
std::string nameIn(const std::string& folder) {
  std::string name = readFile(folder + "/comm", kLargestCommand).value_or(std::string());
  if (name.ends_with('\n')) name.pop_back();
  for (char& character : name) {
    if (character < ' ' || character > '~') character = '?';
  }
  return name;
}

void addDrmClient(const std::string& description, DrmClients& clients) {
  const auto text = readFile(description, kLargestDescription);
  auto client = text ? parseDrmClient(*text) : std::nullopt;
  if (client) clients.insert(std::move(*client));
}

// Whether all descriptors were seen. `left` is what may still be looked at, of this process and of all.
bool readDescriptors(const std::string& folder, std::size_t most, std::size_t& left,
                     ProcessActivity& activity) {
  const std::string descriptors = folder + "/fd";
  const Folder list(::opendir(descriptors.c_str()));
  if (list == nullptr) return false;
  while (const dirent* entry = ::readdir(list.get())) {
    if (entry->d_name[0] == '.') continue;
    if (most == 0 || left == 0) {
      activity.drmClients.clear();
      return false;
    }
    --most;
    --left;
    const auto link = readLink(descriptors + '/' + entry->d_name);
    if (!link) continue;
    if (const auto inode = socketInode(*link)) {
      activity.sockets.push_back(*inode);
    } else if (link->starts_with("/dev/dri/")) {
      addDrmClient(folder + "/fdinfo/" + entry->d_name, activity.drmClients);
    }
  }
  return true;
}

std::optional<ProcessStat> statIn(const std::string& folder) {
  const auto text = readFile(folder + "/stat", kLargestStat);
  const auto stat = text ? parseProcessStat(*text) : std::nullopt;
  return stat && !stat->ended() ? stat : std::nullopt;
}

}  // namespace

std::vector<ProcessActivity> readProcessActivity(const std::string& proc, const ActivityLimits& limits) {
  std::vector<ProcessActivity> list;
  const auto ownNetwork = readLink(proc + "/self/ns/net");
  std::size_t left = limits.descriptors;
  for (const std::int32_t pid : pidsBelow(proc)) {
    const std::string folder = proc + '/' + std::to_string(pid);
    const auto stat = statIn(folder);
    if (!stat) continue;
    ProcessActivity activity;
    activity.pid = pid;
    activity.startTicks = stat->startTicks;
    activity.cpuTicks = stat->userTicks + stat->systemTicks;
    activity.name = nameIn(folder);
    const bool sawAll = readDescriptors(folder, limits.descriptorsOfAProcess, left, activity);
    activity.socketsKnown = sawAll && ownNetwork && readLink(folder + "/ns/net") == ownNetwork;
    // What was read last belongs to the process that was read first only if that one is still there.
    const auto still = statIn(folder);
    if (still && still->startTicks == stat->startTicks) list.push_back(std::move(activity));
  }
  return list;
}

double cpuTicksPerSecond() {
  constexpr double kUsual = 100.0;
  const long ticks = ::sysconf(_SC_CLK_TCK);
  return ticks > 0 ? static_cast<double>(ticks) : kUsual;
}

}  // namespace monitor::platform
