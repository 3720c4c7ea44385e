// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/ProcessStat.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <system_error>

namespace monitor::platform {
namespace {

// Places among the fields behind the command name.
constexpr std::size_t kState = 0;
constexpr std::size_t kParent = 1;
constexpr std::size_t kTerminal = 4;
constexpr std::size_t kFlags = 6;
constexpr std::size_t kUserTicks = 11;
constexpr std::size_t kSystemTicks = 12;
constexpr std::size_t kThreads = 17;
constexpr std::size_t kStartTicks = 19;
constexpr std::size_t kFieldsNeeded = kStartTicks + 1;
constexpr std::size_t kResidentPages = 21;
constexpr std::size_t kProgramBegin = 23;  // code begin, code end, stack begin
constexpr std::size_t kFields = 26;

using Fields = std::array<std::string_view, kFields>;

// The bytes between the first and the last bracket; nothing when the text has no name.
std::optional<std::string_view> commandName(std::string_view text) {
  const std::size_t open = text.find('(');
  const std::size_t close = text.rfind(')');
  if (close == std::string_view::npos || open > close) return std::nullopt;
  return text.substr(open + 1, close - open - 1);
}

// The fields in `text`; those at the end may be missing.
std::optional<Fields> fieldsOf(std::string_view text) {
  Fields fields;
  std::size_t found = 0;
  for (; found < fields.size(); ++found) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const std::string_view field = text.substr(0, std::min(text.find_first_of(" \n"), text.size()));
    if (field.empty()) break;
    fields[found] = field;
    text.remove_prefix(field.size());
  }
  if (found < kFieldsNeeded) return std::nullopt;
  return fields;
}

std::size_t programMark(std::string_view name, const Fields& fields) {
  constexpr std::size_t kSpread = 0x9E37'79B9;
  const std::hash<std::string_view> hash;
  std::size_t mark = hash(name);
  for (std::size_t index = kProgramBegin; index < kFields; ++index)
    mark = mark * kSpread + hash(fields[index]);
  return mark;
}

template <typename Number>
bool parse(std::string_view field, Number& number) {
  const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), number);
  return error == std::errc() && end == field.data() + field.size();
}

}  // namespace

std::optional<ProcessStat> parseProcessStat(std::string_view text) {
  const auto name = commandName(text);
  if (!name) return std::nullopt;
  const auto fields =
      fieldsOf(text.substr(static_cast<std::size_t>(name->data() - text.data()) + name->size() + 1));
  if (!fields || (*fields)[kState].size() != 1) return std::nullopt;
  ProcessStat stat;
  stat.state = (*fields)[kState].front();
  const bool parsed =
      parse((*fields)[kParent], stat.parent) && parse((*fields)[kTerminal], stat.terminal) &&
      parse((*fields)[kUserTicks], stat.userTicks) && parse((*fields)[kSystemTicks], stat.systemTicks) &&
      parse((*fields)[kThreads], stat.threads) && parse((*fields)[kStartTicks], stat.startTicks);
  if (!parsed || stat.parent < 0) return std::nullopt;
  constexpr std::uint64_t kKernelThread = 0x0020'0000;  // as the kernel's sched.h has it
  std::uint64_t flags = 0;
  stat.kernelThread = parse((*fields)[kFlags], flags) && (flags & kKernelThread) != 0;
  if (!parse((*fields)[kResidentPages], stat.residentPages)) stat.residentPages = 0;
  stat.program = programMark(*name, *fields);
  return stat;
}

}  // namespace monitor::platform
