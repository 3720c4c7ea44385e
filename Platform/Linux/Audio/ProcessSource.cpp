// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/ProcessSource.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <ctime>
#include <memory>
#include <sstream>
#include <string_view>

namespace monitor::platform {

namespace {

// Larger than any of the files read here; /proc gives one of them whole in one read.
constexpr std::size_t kMostBytes = 16384;

std::optional<std::string> readFile(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return std::nullopt;
  std::string text(kMostBytes, '\0');
  std::size_t length = 0;
  ssize_t count = 0;
  while (length < text.size() && (count = read(file, text.data() + length, text.size() - length)) > 0) {
    length += static_cast<std::size_t>(count);
  }
  close(file);
  if (count < 0) return std::nullopt;
  text.resize(length);
  return text;
}

// The text behind `label` at the start of a line, up to the line's end.
std::string_view lineAfter(std::string_view text, std::string_view label) {
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string_view line = text.substr(begin, end - begin);
    if (line.starts_with(label)) return line.substr(label.size());
    begin = end + 1;
  }
  return {};
}

template <typename Number>
std::vector<Number> numbersIn(std::string_view text) {
  std::vector<Number> numbers;
  std::istringstream stream{std::string{text}};
  for (Number number = 0; stream >> number;) numbers.push_back(number);
  return numbers;
}

// Field 22 of the stat file, counted from behind the command name, which may itself hold spaces and brackets.
std::optional<std::uint64_t> startTicks(const std::string& stat) {
  constexpr int kFieldsBefore = 19;
  const std::size_t bracket = stat.rfind(')');
  if (bracket == std::string::npos) return std::nullopt;
  std::istringstream fields{stat.substr(bracket + 1)};
  std::string skipped;
  for (int field = 0; field < kFieldsBefore; ++field) fields >> skipped;
  std::uint64_t ticks = 0;
  if (!(fields >> ticks)) return std::nullopt;
  return ticks;
}

std::string executableName(const std::string& link) {
  constexpr std::string_view kDeleted = " (deleted)";
  std::array<char, 4096> target{};
  const ssize_t length = readlink(link.c_str(), target.data(), target.size());
  if (length <= 0) return {};
  std::string_view name{target.data(), static_cast<std::size_t>(length)};
  name.remove_prefix(name.rfind('/') + 1);
  if (name.ends_with(kDeleted)) name.remove_suffix(kDeleted.size());
  return std::string{name};
}

}  // namespace

ProcProcessSource::ProcProcessSource(std::string root) : root_(std::move(root)) {}

std::string ProcProcessSource::path(std::int32_t pid, const char* name) const {
  return root_ + "/" + std::to_string(pid) + "/" + name;
}

std::vector<std::int32_t> ProcProcessSource::pids() const {
  std::vector<std::int32_t> result;
  const std::unique_ptr<DIR, int (*)(DIR*)> folder{opendir(root_.c_str()), closedir};
  if (folder == nullptr) return result;
  while (const dirent* entry = readdir(folder.get())) {
    const std::string_view name{entry->d_name};
    std::int32_t pid = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
    if (error == std::errc{} && end == name.data() + name.size() && pid > 0) result.push_back(pid);
  }
  return result;
}

std::optional<ProcessStatus> ProcProcessSource::status(std::int32_t pid) const {
  const auto text = readFile(path(pid, "status"));
  if (!text) return std::nullopt;
  const auto users = numbersIn<std::uint32_t>(lineAfter(*text, "Uid:"));
  if (users.empty()) return std::nullopt;
  ProcessStatus result{users.front(), numbersIn<std::int32_t>(lineAfter(*text, "NSpid:"))};
  if (result.nsPids.empty()) result.nsPids.push_back(pid);
  return result;
}

std::optional<ProcessDetails> ProcProcessSource::details(std::int32_t pid) const {
  const auto stat = readFile(path(pid, "stat"));
  if (!stat) return std::nullopt;
  const auto ticks = startTicks(*stat);
  if (!ticks) return std::nullopt;
  ProcessDetails result;
  result.startedAt = static_cast<double>(*ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
  result.cgroup = lineAfter(readFile(path(pid, "cgroup")).value_or(std::string{}), "0::");
  result.executable = executableName(path(pid, "exe"));
  return result;
}

std::uint32_t ProcProcessSource::ownUser() const {
  return getuid();
}

double secondsSinceBoot() {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

}  // namespace monitor::platform
