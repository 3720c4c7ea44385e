// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/DesktopEntry.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include "MonitorCore/Utf8.h"

namespace monitor::platform {
namespace {

constexpr std::size_t kLongestName = 1024;

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

std::string unescaped(std::string_view value) {
  std::string result;
  for (std::size_t at = 0; at < value.size(); ++at) {
    if (value[at] != '\\' || at + 1 == value.size()) {
      result += value[at];
      continue;
    }
    switch (value[++at]) {
      case 's':
        result += ' ';
        break;
      case 'n':
        result += '\n';
        break;
      case 't':
        result += '\t';
        break;
      case 'r':
        result += '\r';
        break;
      default:
        result += value[at];
    }
  }
  return result;
}

std::optional<std::string> usableName(std::string_view value) {
  std::string name = unescaped(value);
  if (name.empty() || name.size() > kLongestName || repairedUtf8(name) != name) return std::nullopt;
  return name;
}

// The names of an entry as they come, the localised one by how well its language fits.
class NameReader {
 public:
  explicit NameReader(const std::vector<std::string>& suffixes)
      : suffixes_(suffixes), best_(suffixes.size()) {}

  void read(std::string_view key, std::string_view value, DesktopEntry& entry) {
    if (key == "Name") {
      entry.name = usableName(value);
    } else if (key.starts_with("Name[") && key.ends_with(']')) {
      const auto suffix = std::find(suffixes_.begin(), suffixes_.end(), key.substr(5, key.size() - 6));
      const auto rank = static_cast<std::size_t>(suffix - suffixes_.begin());
      if (rank >= best_) return;
      auto name = usableName(value);
      if (!name) return;
      entry.localizedName = std::move(name);
      best_ = rank;
    }
  }

 private:
  const std::vector<std::string>& suffixes_;
  std::size_t best_;  // rank of the localised name so far
};

}  // namespace

std::vector<std::string> localeSuffixes(std::string_view locale) {
  const std::size_t at = locale.find('@');
  const std::string modifier(at == std::string_view::npos ? std::string_view() : locale.substr(at));
  locale = locale.substr(0, std::min(at, locale.size()));
  locale = locale.substr(0, std::min(locale.find('.'), locale.size()));
  if (locale.empty() || locale == "C" || locale == "POSIX") return {};
  const std::string withCountry(locale);
  const std::string language(locale.substr(0, std::min(locale.find('_'), locale.size())));
  std::vector<std::string> suffixes;
  for (const std::string& base : {withCountry, language}) {
    if (!modifier.empty()) suffixes.push_back(base + modifier);
    suffixes.push_back(base);
    if (withCountry == language) break;
  }
  return suffixes;
}

std::string messagesLocale() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (const char* value = std::getenv(variable); value != nullptr && *value != '\0') return value;
  }
  return {};
}

std::optional<DesktopEntry> parseDesktopEntry(std::string_view text,
                                              const std::vector<std::string>& suffixes) {
  DesktopEntry entry;
  NameReader names(suffixes);
  bool seen = false;
  bool inside = false;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, std::min(text.find('\n'), text.size()));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    const std::string_view content = trimmed(line);
    if (content.starts_with('[')) {
      if (seen) break;  // other groups, such as actions, have names of their own
      inside = seen = content == "[Desktop Entry]";
      continue;
    }
    const std::size_t equals = content.find('=');
    if (!inside || content.starts_with('#') || equals == std::string_view::npos) continue;
    const std::string_view key = trimmed(content.substr(0, equals));
    const std::string_view value = trimmed(content.substr(equals + 1));
    if (key == "Hidden") entry.hidden = value == "true";
    names.read(key, value, entry);
  }
  if (!seen) return std::nullopt;
  if (!entry.localizedName) entry.localizedName = entry.name;
  return entry;
}

}  // namespace monitor::platform
