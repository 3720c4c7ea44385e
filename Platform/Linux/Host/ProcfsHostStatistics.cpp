// SPDX-License-Identifier: MIT
#include "Platform/Linux/Host/ProcfsHostStatistics.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace monitor::platform {
namespace {

// The rest of the line that begins with `key`; nothing when there is none.
std::optional<std::string_view> lineOf(std::string_view text, std::string_view key) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    if (line.starts_with(key)) return line.substr(key.size());
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return std::nullopt;
}

// A figure of /proc/meminfo, in bytes.
std::optional<std::uint64_t> meminfoBytes(std::string_view meminfo, std::string_view key) {
  const auto rest = lineOf(meminfo, key);
  if (!rest) return std::nullopt;
  const auto pieces = words(*rest);
  if (pieces.size() != 2 || pieces[1] != "kB") return std::nullopt;
  const auto kibibytes = unsignedNumber(pieces[0]);
  if (!kibibytes || *kibibytes > UINT64_MAX / 1024) return std::nullopt;
  return *kibibytes * 1024;
}

// The ten-second average of a pressure line, in percent.
std::optional<double> pressureAverage(std::string_view pressure, std::string_view kind) {
  const auto rest = lineOf(pressure, kind);
  if (!rest) return std::nullopt;
  constexpr std::string_view kKey = "avg10=";
  for (const std::string_view piece : words(*rest)) {
    if (!piece.starts_with(kKey)) continue;
    const std::string_view number = piece.substr(kKey.size());
    double value = 0.0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
    if (error != std::errc() || end != number.data() + number.size()) return std::nullopt;
    return value;
  }
  return std::nullopt;
}

}  // namespace

std::optional<CpuTicks> ProcfsHostStatistics::cpuTicks() {
  // user nice system idle iowait irq softirq steal; kernels before 2.6.11 lack the last ones.
  constexpr std::size_t kFewest = 4;
  constexpr std::size_t kFields = 8;
  const auto stat = files_.text("proc/stat");
  if (!stat) return std::nullopt;
  const auto rest = lineOf(*stat, "cpu ");
  if (!rest) return std::nullopt;
  const auto pieces = words(*rest);
  if (pieces.size() < kFewest) return std::nullopt;
  std::array<std::uint64_t, kFields> ticks{};
  for (std::size_t index = 0; index < std::min(pieces.size(), kFields); ++index) {
    const auto number = unsignedNumber(pieces[index]);
    if (!number) return std::nullopt;
    ticks[index] = *number;
  }
  highest_.user = std::max(highest_.user, ticks[0]);
  highest_.nice = std::max(highest_.nice, ticks[1]);
  highest_.system = std::max(highest_.system, ticks[2] + ticks[5] + ticks[6] + ticks[7]);
  highest_.idle = std::max(highest_.idle, ticks[3] + ticks[4]);
  return highest_;
}

std::optional<std::uint64_t> ProcfsHostStatistics::physicalMemory() {
  const auto meminfo = files_.text("proc/meminfo");
  if (!meminfo) return std::nullopt;
  return meminfoBytes(*meminfo, "MemTotal:");
}

std::optional<MemoryReport> ProcfsHostStatistics::memory() {
  // What zram takes is known without it.
  const std::string meminfo = files_.text("proc/meminfo").value_or(std::string());
  MemoryReport report;
  const auto total = meminfoBytes(meminfo, "MemTotal:");
  const auto available = meminfoBytes(meminfo, "MemAvailable:");
  if (total && available) report.used = *total - std::min(*total, *available);
  report.wired = meminfoBytes(meminfo, "Unevictable:");
  report.compressed = compressedMemory(meminfo);
  if (meminfo.empty() && !report.compressed) return std::nullopt;
  return report;
}

std::optional<std::uint64_t> ProcfsHostStatistics::compressedMemory(std::string_view meminfo) const {
  // mm_stat: original size, compressed size, memory used in total, …
  constexpr std::size_t kMemoryUsed = 2;
  auto sum = meminfoBytes(meminfo, "Zswap:");
  for (const std::string& name : files_.names("sys/block")) {
    if (!name.starts_with("zram")) continue;
    const auto statistics = files_.line("sys/block/" + name + "/mm_stat");
    if (!statistics) continue;
    const auto pieces = words(*statistics);
    if (pieces.size() <= kMemoryUsed) continue;
    if (const auto used = unsignedNumber(pieces[kMemoryUsed])) sum = sum.value_or(0) + *used;
  }
  return sum;
}

std::optional<std::int32_t> ProcfsHostStatistics::memoryPressureLevel() {
  constexpr double kStalled = 10.0;  // percent of the last ten seconds
  const auto pressure = files_.text("proc/pressure/memory");
  if (!pressure) return std::nullopt;
  const auto some = pressureAverage(*pressure, "some ");
  if (!some) return std::nullopt;
  if (pressureAverage(*pressure, "full ").value_or(0.0) >= kStalled) return 4;
  return *some >= kStalled ? 2 : 1;
}

std::optional<VolumeCapacity> ProcfsHostStatistics::homeVolume() {
  struct statvfs volume {};
  if (::statvfs(homeFolder_.c_str(), &volume) != 0) return std::nullopt;
  return VolumeCapacity{static_cast<std::uint64_t>(volume.f_blocks) * volume.f_frsize,
                        static_cast<std::uint64_t>(volume.f_bavail) * volume.f_frsize};
}

}  // namespace monitor::platform
