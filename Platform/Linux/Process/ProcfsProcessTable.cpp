// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/ProcfsProcessTable.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "Platform/Linux/Base/Folder.h"
#include "Platform/Linux/Process/BoundedFile.h"
#include "Platform/Linux/Process/ListeningSockets.h"
#include "Platform/Linux/Process/ProcessFigures.h"
#include "Platform/Linux/Process/ProcessStat.h"

namespace monitor::platform {
namespace {

constexpr std::size_t kLargestStat = 4096;
constexpr std::size_t kLargestCommand = 256;
constexpr std::size_t kLargestStatus = 64U << 10U;
// The listening sockets come first in these tables, so that a cut at the end costs none of them.
constexpr std::size_t kSocketTableBytes = 4U << 20U;
constexpr std::size_t kMostDescriptors = 1U << 20U;

template <typename Number>
std::optional<Number> numberOf(std::string_view text) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace

ProcfsProcessTable::ProcfsProcessTable(std::string root, std::shared_ptr<BootTime> bootTime)
    : root_(std::move(root)), bootTime_(std::move(bootTime)), units_(kernelUnits()) {}

std::string ProcfsProcessTable::path(std::int32_t pid, const char* name) const {
  return root_ + '/' + std::to_string(pid) + '/' + name;
}

std::vector<std::int32_t> ProcfsProcessTable::allPids() {
  swapInUse_ = readSwapUse();
  std::vector<std::int32_t> pids;
  const Folder folder(::opendir(root_.c_str()));
  if (folder == nullptr) return pids;
  while (const dirent* entry = ::readdir(folder.get())) {
    const auto pid = numberOf<std::int32_t>(entry->d_name);
    if (pid && *pid > 0) pids.push_back(*pid);
  }
  return pids;
}

std::optional<ProcessRecord> ProcfsProcessTable::record(std::int32_t pid) {
  // Through one folder, so that owner and start are of the same process even when the pid is taken over
  // meanwhile.
  const FileDescriptor folder = openFolder(root_ + '/' + std::to_string(pid));
  struct stat status {};
  if (!folder.valid() || ::fstat(folder.get(), &status) != 0) return std::nullopt;
  const auto text = readFileIn(folder, "stat", kLargestStat);
  const auto stat = text ? parseProcessStat(*text) : std::nullopt;
  const auto boot = bootTime_->seconds();
  if (!stat || stat->ended() || !boot) return std::nullopt;
  return recordOf(*stat, status.st_uid, *boot, units_);
}

std::string ProcfsProcessTable::executablePath(std::int32_t pid) {
  const std::string link = path(pid, "exe");
  auto target = readLink(link);
  if (target) return withoutDeletedMark(std::move(*target), link);
  std::string command = readFile(path(pid, "comm"), kLargestCommand).value_or(std::string());
  if (command.ends_with('\n')) command.pop_back();
  return command;
}

std::optional<ProcessUsage> ProcfsProcessTable::usage(std::int32_t pid) {
  const auto text = readFile(path(pid, "stat"), kLargestStat);
  const auto stat = text ? parseProcessStat(*text) : std::nullopt;
  if (!stat || stat->ended()) return std::nullopt;
  const auto statm = readFile(path(pid, "statm"), kLargestStat);
  const auto io = readFile(path(pid, "io"), kLargestStat);
  const auto status = swapInUse_ ? readFile(path(pid, "status"), kLargestStatus) : std::nullopt;
  return usageOf(*stat, {statm, io, status}, units_);
}

bool ProcfsProcessTable::readSwapUse() const {
  const auto text = readFile(root_ + "/meminfo", kLargestStatus);
  return text && isSwapInUse(*text);
}

double ProcfsProcessTable::cpuTimeUnitNanoseconds() const {
  return 1e9 / static_cast<double>(units_.ticksPerSecond);
}

std::vector<std::int64_t> ProcfsProcessTable::listeningPorts(std::int32_t pid) {
  ListeningSockets sockets;
  for (const char* table :
       {"net/tcp", "net/tcp6"}) {  // as the process sees them, in its own network namespace
    if (const auto text = readBeginning(path(pid, table), kSocketTableBytes))
      addListeningSockets(*text, sockets);
  }
  if (sockets.empty()) return {};
  const std::string descriptors = path(pid, "fd");
  const Folder folder(::opendir(descriptors.c_str()));
  if (folder == nullptr) return {};
  std::set<std::int64_t> ports;
  std::size_t seen = 0;
  while (const dirent* entry = ::readdir(folder.get())) {
    if (++seen > kMostDescriptors) break;
    const auto link = readLink(descriptors + '/' + entry->d_name);
    const auto inode = link ? socketInode(*link) : std::nullopt;
    const auto socket = inode ? sockets.find(*inode) : sockets.end();
    if (socket != sockets.end()) ports.insert(socket->second);
  }
  return {ports.begin(), ports.end()};
}

std::optional<std::string> ProcfsProcessTable::workingDirectory(std::int32_t pid) {
  const std::string link = path(pid, "cwd");
  auto target = readLink(link);
  if (!target) return std::nullopt;
  return withoutDeletedMark(std::move(*target), link);
}

}  // namespace monitor::platform
