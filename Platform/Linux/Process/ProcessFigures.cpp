// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/ProcessFigures.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>

namespace monitor::platform {
namespace {

constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;
constexpr std::uint64_t kKibibyte = 1024;

std::optional<std::uint64_t> numberOf(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::uint64_t positiveSetting(int name, std::uint64_t otherwise) {
  const long value = ::sysconf(name);
  return value > 0 ? static_cast<std::uint64_t>(value) : otherwise;
}

}  // namespace

KernelUnits kernelUnits() {
  return {positiveSetting(_SC_CLK_TCK, 100), positiveSetting(_SC_PAGESIZE, 4096)};
}

std::optional<std::uint64_t> numberBehind(std::string_view text, std::string_view label) {
  while (!text.empty()) {
    std::string_view line = text.substr(0, std::min(text.find('\n'), text.size()));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (!line.starts_with(label)) continue;
    line.remove_prefix(std::min(line.find_first_not_of(" \t", label.size()), line.size()));
    return numberOf(line.substr(0, line.find(' ')));
  }
  return std::nullopt;
}

std::optional<ProcessRecord> recordOf(const ProcessStat& stat, std::uint32_t owner, std::uint64_t bootSeconds,
                                      const KernelUnits& units) {
  std::uint64_t sinceBoot = 0;
  if (__builtin_mul_overflow(stat.startTicks, kMicrosecondsPerSecond / units.ticksPerSecond, &sinceBoot)) {
    return std::nullopt;
  }
  ProcessRecord record;
  record.startSeconds = bootSeconds + sinceBoot / kMicrosecondsPerSecond;
  record.startMicroseconds = sinceBoot % kMicrosecondsPerSecond;
  record.parent = static_cast<std::uint32_t>(stat.parent);
  record.owner = owner;
  return record;
}

std::optional<std::uint64_t> unsharedBytes(std::string_view statm, const KernelUnits& units) {
  std::array<std::uint64_t, 3> pages{};  // size, resident, shared
  for (std::uint64_t& count : pages) {
    const auto number = numberOf(statm.substr(0, statm.find_first_of(" \n")));
    if (!number) return std::nullopt;
    count = *number;
    statm.remove_prefix(std::min(statm.find(' '), statm.size() - 1) + 1);
  }
  const auto [size, resident, shared] = pages;
  return (resident - std::min(resident, shared)) * units.pageBytes;
}

ProcessUsage usageOf(const ProcessStat& stat, const UsageTexts& texts, const KernelUnits& units) {
  ProcessUsage usage;
  usage.cpuTime = stat.userTicks + stat.systemTicks;
  const auto unshared = texts.statm ? unsharedBytes(*texts.statm, units) : std::nullopt;
  usage.memory = unshared.value_or(stat.residentPages * units.pageBytes);
  if (texts.status) usage.memory += numberBehind(*texts.status, "VmSwap:").value_or(0) * kKibibyte;
  if (texts.io) {
    usage.diskRead = numberBehind(*texts.io, "read_bytes:");
    usage.diskWritten = numberBehind(*texts.io, "write_bytes:");
  }
  return usage;
}

bool isSwapInUse(std::string_view meminfo) {
  return numberBehind(meminfo, "SwapTotal:").value_or(0) > numberBehind(meminfo, "SwapFree:").value_or(0);
}

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

}  // namespace monitor::platform
