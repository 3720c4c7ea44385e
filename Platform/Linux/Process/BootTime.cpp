// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/BootTime.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <system_error>

#include "Platform/Linux/Process/BoundedFile.h"

namespace monitor::platform {
namespace {

// Grows with the processors and interrupts of a machine; the line looked for comes behind those.
constexpr std::size_t kLargestStatFile = 4U << 20U;

std::optional<std::uint64_t> bootSecondsIn(std::string_view text) {
  constexpr std::string_view kLabel = "btime ";
  while (!text.empty()) {
    const std::string_view line = text.substr(0, std::min(text.find('\n'), text.size()));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (!line.starts_with(kLabel)) continue;
    std::uint64_t seconds = 0;
    const char* begin = line.data() + kLabel.size();
    const auto [end, error] = std::from_chars(begin, line.data() + line.size(), seconds);
    if (error != std::errc() || end != line.data() + line.size()) return std::nullopt;
    return seconds;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::uint64_t> BootTime::seconds() {
  const std::lock_guard lock(mutex_);
  if (!seconds_) {
    if (const auto text = readFile(procRoot_ + "/stat", kLargestStatFile)) seconds_ = bootSecondsIn(*text);
  }
  return seconds_;
}

}  // namespace monitor::platform
