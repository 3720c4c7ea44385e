// SPDX-License-Identifier: MIT
#include "MonitorCore/ProcessKey.h"

#include <array>
#include <charconv>
#include <string_view>

namespace monitor {

namespace {

template <class Number>
void append(std::string& text, Number number) {
  std::array<char, 24> digits;
  text.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
}

std::string textOf(std::string_view prefix, const ProcessKey& key) {
  std::string text;
  text.reserve(40);  // the longest there is, in one piece: one is made for every process of every sample
  text += prefix;
  append(text, key.pid);
  text += ':';
  append(text, key.start);
  return text;
}

}  // namespace

std::string ProcessKey::id() const { return textOf("", *this); }

std::string fallbackIdentity(const ProcessKey& key) { return textOf("process:", key); }

}  // namespace monitor

std::size_t std::hash<monitor::ProcessKey>::operator()(const monitor::ProcessKey& key) const noexcept {
  const std::size_t seed = std::hash<std::int32_t>{}(key.pid);
  return seed ^ (std::hash<std::uint64_t>{}(key.start) + 0x9e3779b97f4a7c15ULL + (seed << 6U) + (seed >> 2U));
}
