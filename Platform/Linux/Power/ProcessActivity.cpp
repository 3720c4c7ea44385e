// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/ProcessActivity.h"

#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

#include "Platform/Linux/Base/Folder.h"
#include "Platform/Linux/Process/BoundedFile.h"
#include "Platform/Linux/Process/ListeningSockets.h"
#include "Platform/Linux/Process/ProcessStat.h"

namespace monitor::platform {
namespace {

constexpr std::size_t kLargestStat = 4'096;
constexpr std::size_t kLargestCommand = 256;
constexpr std::size_t kLargestDescription = 16'384;

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

// Whether all descriptors were seen, which are at most `most`. What was looked at is taken from `left`.
bool readDescriptors(const std::string& folder, std::size_t most, std::size_t& left,
                     ProcessActivity& activity) {
  // Listing costs too: the kernel makes an entry for each descriptor that it lists.
  if (most == 0) return false;
  const std::string descriptors = folder + "/fd";
  const Folder list(::opendir(descriptors.c_str()));
  if (list == nullptr) return false;
  while (const dirent* entry = ::readdir(list.get())) {
    if (entry->d_name[0] == '.') continue;
    if (most == 0) {
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

// A process on the way into the list.
struct Found {
  std::string folder;
  ProcessActivity activity;
  std::uint64_t descriptors = 0;  // 0 where the kernel does not say
};

bool isProcfs(const std::string& proc) {
  struct statfs status {};
  return ::statfs(proc.c_str(), &status) == 0 && status.f_type == PROC_SUPER_MAGIC;
}

// The size of the folder, since Linux 6.2; before that it is 0.
std::uint64_t descriptorCount(const std::string& folder) {
  struct stat status {};
  if (::stat((folder + "/fd").c_str(), &status) != 0 || status.st_size < 0) return 0;
  return static_cast<std::uint64_t>(status.st_size);
}

std::vector<Found> findProcesses(const std::string& proc) {
  const bool countsDescriptors = isProcfs(proc);
  std::vector<Found> list;
  for (const std::int32_t pid : pidsBelow(proc)) {
    Found found;
    found.folder = proc + '/' + std::to_string(pid);
    const auto stat = statIn(found.folder);
    if (!stat) continue;
    found.activity.pid = pid;
    found.activity.startTicks = stat->startTicks;
    found.activity.cpuTicks = stat->userTicks + stat->systemTicks;
    found.activity.name = nameIn(found.folder);
    if (countsDescriptors) found.descriptors = descriptorCount(found.folder);
    list.push_back(std::move(found));
  }
  return list;
}

// Those with few descriptors first: whoever opens very many costs only himself.
std::vector<Found*> byDescriptors(std::vector<Found>& list) {
  std::vector<Found*> order;
  for (Found& found : list) order.push_back(&found);
  std::stable_sort(order.begin(), order.end(), [](const Found* one, const Found* other) {
    return one->descriptors < other->descriptors;
  });
  return order;
}

}  // namespace

std::vector<ProcessActivity> readProcessActivity(const std::string& proc, const ActivityLimits& limits) {
  const auto ownNetwork = readLink(proc + "/self/ns/net");
  std::vector<Found> list = findProcesses(proc);
  std::size_t left = limits.descriptors;
  for (Found* found : byDescriptors(list)) {
    const std::size_t most = std::min(limits.descriptorsOfAProcess, left);
    const bool sawAll =
        found->descriptors <= most && readDescriptors(found->folder, most, left, found->activity);
    found->activity.socketsKnown = sawAll && ownNetwork && readLink(found->folder + "/ns/net") == ownNetwork;
  }
  std::vector<ProcessActivity> result;
  result.reserve(list.size());
  for (Found& found : list) {
    // What was read last belongs to the process that was read first only if that one is still there.
    const auto still = statIn(found.folder);
    if (still && still->startTicks == found.activity.startTicks) result.push_back(std::move(found.activity));
  }
  return result;
}

double cpuTicksPerSecond() {
  constexpr double kUsual = 100.0;
  const long ticks = ::sysconf(_SC_CLK_TCK);
  return ticks > 0 ? static_cast<double>(ticks) : kUsual;
}

}  // namespace monitor::platform
