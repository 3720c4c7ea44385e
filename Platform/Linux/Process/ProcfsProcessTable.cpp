// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/ProcfsProcessTable.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "Platform/Linux/Process/BoundedFile.h"
#include "Platform/Linux/Process/ListeningSockets.h"
#include "Platform/Linux/Process/ProcessStat.h"

namespace monitor::platform {
namespace {

constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;

constexpr std::size_t kLargestStat = 4096;
constexpr std::size_t kLargestCommand = 256;
constexpr std::size_t kLargestStatus = 64U << 10U;
// The listening sockets come first in these tables, so that a cut at the end costs none of them.
constexpr std::size_t kSocketTableBytes = 4U << 20U;
constexpr std::size_t kMostDescriptors = 1U << 20U;

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};
using Folder = std::unique_ptr<DIR, CloseFolder>;

template <typename Number>
std::optional<Number> numberOf(std::string_view text) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

// The number behind a label at the beginning of a line: "VmSwap:      12 kB".
std::optional<std::uint64_t> numberBehind(std::string_view text, std::string_view label) {
  while (!text.empty()) {
    std::string_view line = text.substr(0, std::min(text.find('\n'), text.size()));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (!line.starts_with(label)) continue;
    line.remove_prefix(std::min(line.find_first_not_of(" \t", label.size()), line.size()));
    return numberOf<std::uint64_t>(line.substr(0, line.find(' ')));
  }
  return std::nullopt;
}

// A process whose executable or folder was unlinked keeps a link that says so. Of a file that is really
// called like that the link leads to the file itself.
std::string withoutDeletedMark(std::string target, const std::string& link) {
  constexpr std::string_view kMark = " (deleted)";
  if (!target.ends_with(kMark)) return target;
  struct stat linked {};
  struct stat named {};
  const bool isItsName = ::stat(link.c_str(), &linked) == 0 && ::stat(target.c_str(), &named) == 0 &&
                         linked.st_dev == named.st_dev && linked.st_ino == named.st_ino;
  if (!isItsName) target.resize(target.size() - kMark.size());
  return target;
}

std::uint64_t positiveSetting(int name, std::uint64_t otherwise) {
  const long value = ::sysconf(name);
  return value > 0 ? static_cast<std::uint64_t>(value) : otherwise;
}

}  // namespace

ProcfsProcessTable::ProcfsProcessTable(std::string root, std::shared_ptr<BootTime> bootTime)
    : root_(std::move(root)),
      bootTime_(std::move(bootTime)),
      ticksPerSecond_(positiveSetting(_SC_CLK_TCK, 100)),
      pageBytes_(positiveSetting(_SC_PAGESIZE, 4096)) {}

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
  std::uint64_t sinceBoot = 0;
  if (__builtin_mul_overflow(stat->startTicks, kMicrosecondsPerSecond / ticksPerSecond_, &sinceBoot)) {
    return std::nullopt;
  }
  ProcessRecord record;
  record.startSeconds = *boot + sinceBoot / kMicrosecondsPerSecond;
  record.startMicroseconds = sinceBoot % kMicrosecondsPerSecond;
  record.parent = static_cast<std::uint32_t>(stat->parent);
  record.owner = status.st_uid;
  return record;
}

std::string ProcfsProcessTable::executablePath(std::int32_t pid) {
  const std::string link = path(pid, "exe");
  auto target = readLink(link);
  if (target) return withoutDeletedMark(std::move(*target), link);
  if (errno != EACCES && errno != EPERM) return {};
  std::string command = readFile(path(pid, "comm"), kLargestCommand).value_or(std::string());
  if (command.ends_with('\n')) command.pop_back();
  return command;
}

std::optional<ProcessUsage> ProcfsProcessTable::usage(std::int32_t pid) {
  const auto text = readFile(path(pid, "stat"), kLargestStat);
  const auto stat = text ? parseProcessStat(*text) : std::nullopt;
  if (!stat || stat->ended()) return std::nullopt;
  const auto bytes = memory(pid);
  if (!bytes) return std::nullopt;
  ProcessUsage usage;
  usage.cpuTime = stat->userTicks + stat->systemTicks;
  usage.memory = *bytes;
  if (const auto io = readFile(path(pid, "io"), kLargestStat)) {
    usage.diskRead = numberBehind(*io, "read_bytes:");
    usage.diskWritten = numberBehind(*io, "write_bytes:");
  }
  return usage;
}

std::optional<std::uint64_t> ProcfsProcessTable::memory(std::int32_t pid) const {
  const auto text = readFile(path(pid, "statm"), kLargestStat);
  if (!text) return std::nullopt;
  std::array<std::uint64_t, 3> pages{};  // size, resident, shared
  std::string_view rest = *text;
  for (std::uint64_t& count : pages) {
    const auto number = numberOf<std::uint64_t>(rest.substr(0, rest.find_first_of(" \n")));
    if (!number) return std::nullopt;
    count = *number;
    rest.remove_prefix(std::min(rest.find(' '), rest.size() - 1) + 1);
  }
  const auto [size, resident, shared] = pages;
  std::uint64_t bytes = (resident - std::min(resident, shared)) * pageBytes_;
  if (swapInUse_) {
    const auto status = readFile(path(pid, "status"), kLargestStatus);
    if (status) bytes += numberBehind(*status, "VmSwap:").value_or(0) * 1024;
  }
  return bytes;
}

bool ProcfsProcessTable::readSwapUse() const {
  const auto text = readFile(root_ + "/meminfo", kLargestStatus);
  if (!text) return false;
  return numberBehind(*text, "SwapTotal:").value_or(0) > numberBehind(*text, "SwapFree:").value_or(0);
}

double ProcfsProcessTable::cpuTimeUnitNanoseconds() const {
  return 1e9 / static_cast<double>(ticksPerSecond_);
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
