// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/ProcessStat.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <system_error>

namespace monitor::platform {
namespace {

// Places among the fields behind the command name.
constexpr std::size_t kState = 0;
constexpr std::size_t kParent = 1;
constexpr std::size_t kTerminal = 4;
constexpr std::size_t kUserTicks = 11;
constexpr std::size_t kSystemTicks = 12;
constexpr std::size_t kThreads = 17;
constexpr std::size_t kStartTicks = 19;
constexpr std::size_t kFieldsNeeded = kStartTicks + 1;

using Fields = std::array<std::string_view, kFieldsNeeded>;

std::optional<Fields> fieldsBehindName(std::string_view text) {
  const std::size_t bracket = text.rfind(')');
  if (bracket == std::string_view::npos || text.find('(') > bracket) return std::nullopt;
  text.remove_prefix(bracket + 1);
  Fields fields;
  for (std::string_view& field : fields) {
    const std::size_t begin = text.find_first_not_of(' ');
    if (begin == std::string_view::npos) return std::nullopt;
    text.remove_prefix(begin);
    field = text.substr(0, std::min(text.find_first_of(" \n"), text.size()));
    text.remove_prefix(field.size());
    if (field.empty()) return std::nullopt;
  }
  return fields;
}

template <typename Number>
bool parse(std::string_view field, Number& number) {
  const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), number);
  return error == std::errc() && end == field.data() + field.size();
}

}  // namespace

std::optional<ProcessStat> parseProcessStat(std::string_view text) {
  const auto fields = fieldsBehindName(text);
  if (!fields || (*fields)[kState].size() != 1) return std::nullopt;
  ProcessStat stat;
  stat.state = (*fields)[kState].front();
  const bool parsed =
      parse((*fields)[kParent], stat.parent) && parse((*fields)[kTerminal], stat.terminal) &&
      parse((*fields)[kUserTicks], stat.userTicks) && parse((*fields)[kSystemTicks], stat.systemTicks) &&
      parse((*fields)[kThreads], stat.threads) && parse((*fields)[kStartTicks], stat.startTicks);
  if (!parsed || stat.parent < 0) return std::nullopt;
  return stat;
}

}  // namespace monitor::platform
