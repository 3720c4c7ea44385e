// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/ControlGroup.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "MonitorCore/Utf8.h"

namespace monitor::platform {
namespace {

constexpr std::string_view kScope = ".scope";
constexpr std::string_view kService = ".service";

std::optional<unsigned> hexDigit(char character) {
  if (character >= '0' && character <= '9') return static_cast<unsigned>(character - '0');
  if (character >= 'a' && character <= 'f') return static_cast<unsigned>(character - 'a' + 10);
  if (character >= 'A' && character <= 'F') return static_cast<unsigned>(character - 'A' + 10);
  return std::nullopt;
}

std::string unescaped(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    if (text.size() >= 4 && text.starts_with("\\x")) {
      const auto high = hexDigit(text[2]);
      const auto low = hexDigit(text[3]);
      if (high && low) {
        result += static_cast<char>(*high * 16 + *low);
        text.remove_prefix(4);
        continue;
      }
    }
    result += text.front();
    text.remove_prefix(1);
  }
  return result;
}

// Behind the first `dashes` dashes.
std::string_view behindDash(std::string_view text, std::size_t dashes) {
  for (; dashes > 0; --dashes) text.remove_prefix(text.find('-') + 1);
  return text;
}

void addIdentifier(std::string_view escaped, std::vector<std::string>& ids) {
  constexpr std::string_view kEntrySuffix = ".desktop";
  std::string id = unescaped(escaped);
  if (id.ends_with(kEntrySuffix)) id.resize(id.size() - kEntrySuffix.size());
  if (isUsableIdentifier(id) && std::find(ids.begin(), ids.end(), id) == ids.end())
    ids.push_back(std::move(id));
}

// "[LAUNCHER-]ID" into ids: without the first part, which is the launcher when there are two; whole; the last
// part.
std::vector<std::string> idsOfName(std::string_view name) {
  std::vector<std::string> ids;
  const auto dashes = static_cast<std::size_t>(std::count(name.begin(), name.end(), '-'));
  if (dashes > 0) addIdentifier(behindDash(name, 1), ids);
  addIdentifier(name, ids);
  if (dashes > 1) addIdentifier(behindDash(name, dashes), ids);
  return ids;
}

std::optional<std::string> snapApplication(std::string_view name, std::string_view application) {
  std::string identifier = std::string(name) + '_' + std::string(application);
  if (name.empty() || application.empty() || !isUsableIdentifier(identifier)) return std::nullopt;
  return identifier;
}

bool isUuid(std::string_view text) {
  if (text.size() != 36) return false;
  return std::all_of(text.begin(), text.end(),
                     [](char each) { return each == '-' || hexDigit(each).has_value(); });
}

}  // namespace

std::optional<std::string_view> controlGroupPath(std::string_view text) {
  constexpr std::string_view kUnified = "0::";
  while (!text.empty()) {
    const std::string_view line = text.substr(0, std::min(text.find('\n'), text.size()));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (line.starts_with(kUnified)) return line.substr(kUnified.size());
  }
  return std::nullopt;
}

std::string_view unitOf(std::string_view controlGroup) {
  while (!controlGroup.empty()) {
    const std::size_t slash = controlGroup.rfind('/');
    const std::string_view name = controlGroup.substr(slash == std::string_view::npos ? 0 : slash + 1);
    if (name.ends_with(kScope) || name.ends_with(kService)) return name;
    controlGroup = controlGroup.substr(0, slash == std::string_view::npos ? 0 : slash);
  }
  return {};
}

bool isCommandLineUnit(std::string_view unit) {
  constexpr std::array<std::string_view, 4> kPrefixes{"vte-spawn-", "tmux-", "session-", "run-"};
  return std::any_of(kPrefixes.begin(), kPrefixes.end(),
                     [unit](std::string_view prefix) { return unit.starts_with(prefix); });
}

std::vector<std::string> applicationIdsOf(std::string_view unit) {
  constexpr std::string_view kPrefix = "app-";
  if (!unit.starts_with(kPrefix)) return {};
  if (unit.ends_with(kScope)) {
    std::string_view name = unit.substr(kPrefix.size(), unit.size() - kPrefix.size() - kScope.size());
    const std::size_t random = name.rfind('-');
    return idsOfName(name.substr(0, random));  // whole where a launcher left the random part out
  }
  if (unit.ends_with(kService)) {
    const std::string_view name = unit.substr(kPrefix.size(), unit.size() - kPrefix.size() - kService.size());
    return idsOfName(name.substr(0, name.find('@')));
  }
  return {};
}

std::optional<std::string> snapApplicationOfUnit(std::string_view unit) {
  constexpr std::string_view kPrefix = "snap.";
  constexpr std::size_t kUuidLength = 36;
  if (!unit.starts_with(kPrefix)) return std::nullopt;
  if (!unit.ends_with(kScope) && !unit.ends_with(kService)) return std::nullopt;
  std::string_view rest = unit.substr(kPrefix.size());
  rest = rest.substr(0, rest.rfind('.'));
  const std::string_view name = rest.substr(0, rest.find('.'));
  if (name.size() == rest.size()) return std::nullopt;
  rest.remove_prefix(name.size() + 1);
  // Scopes end in a random part, behind a dash or, as it once was, a point.
  if (rest.size() > kUuidLength + 1 && isUuid(rest.substr(rest.size() - kUuidLength))) {
    rest.remove_suffix(kUuidLength + 1);
  }
  return snapApplication(name, unescaped(rest));
}

std::optional<std::string> snapApplicationOfLabel(std::string_view label) {
  constexpr std::string_view kPrefix = "snap.";
  if (!label.starts_with(kPrefix)) return std::nullopt;
  label.remove_prefix(kPrefix.size());
  label = label.substr(0, label.find_first_of(" \n"));
  const std::size_t point = label.find('.');
  if (point == std::string_view::npos) return std::nullopt;
  return snapApplication(label.substr(0, point), label.substr(point + 1));
}

bool isUsableIdentifier(std::string_view text) {
  constexpr std::size_t kLongest = 255;
  if (text.empty() || text.size() > kLongest || repairedUtf8(std::string(text)) != text) return false;
  return std::none_of(text.begin(), text.end(), [](char character) {
    return static_cast<unsigned char>(character) < 0x20 || character == 0x7F || character == '/';
  });
}

}  // namespace monitor::platform
