// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/ProcessSource.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <sstream>
#include <string_view>

#include "Platform/Linux/Process/BoundedFile.h"
#include "Platform/Linux/Process/ControlGroup.h"
#include "Platform/Linux/Process/ProcessStat.h"

namespace monitor::platform {

namespace {

// Far more than any of the files read here has.
constexpr std::size_t kMostBytes = std::size_t{64} << 10U;

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

std::string executableName(const std::string& link) {
  constexpr std::string_view kDeleted = " (deleted)";
  const auto target = readLink(link);
  if (!target) return {};
  std::string_view name{*target};
  name.remove_prefix(name.rfind('/') + 1);
  if (name.ends_with(kDeleted)) name.remove_suffix(kDeleted.size());
  return std::string{name};
}

}  // namespace

ProcProcessSource::ProcProcessSource(std::string root) : root_(std::move(root)), folder_(root_) {}

std::string ProcProcessSource::path(std::int32_t pid, const char* name) const {
  return root_ + "/" + std::to_string(pid) + "/" + name;
}

std::vector<std::int32_t> ProcProcessSource::pids() const {
  return folder_.pids();
}

std::optional<ProcessStatus> ProcProcessSource::status(std::int32_t pid) const {
  const auto text = readBeginning(path(pid, "status"), kMostBytes);
  if (!text) return std::nullopt;
  const auto users = numbersIn<std::uint32_t>(lineAfter(*text, "Uid:"));
  if (users.empty()) return std::nullopt;
  ProcessStatus result{users.front(), numbersIn<std::int32_t>(lineAfter(*text, "NSpid:"))};
  if (result.nsPids.empty()) result.nsPids.push_back(pid);
  return result;
}

std::optional<ProcessDetails> ProcProcessSource::details(std::int32_t pid) const {
  const auto text = readFile(path(pid, "stat"), kMostBytes);
  const auto stat = text ? parseProcessStat(*text) : std::nullopt;
  if (!stat) return std::nullopt;
  ProcessDetails result;
  result.startedAt = static_cast<double>(stat->startTicks) / static_cast<double>(sysconf(_SC_CLK_TCK));
  const auto groups = readFile(path(pid, "cgroup"), kMostBytes).value_or(std::string{});
  result.cgroup = controlGroupPath(groups).value_or(std::string_view{});
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
