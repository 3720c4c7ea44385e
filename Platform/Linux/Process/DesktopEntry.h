// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace monitor::platform {

// What is used of a desktop entry file.
struct DesktopEntry {
  bool hidden = false;                       // the entry is to be treated as if it did not exist
  std::optional<std::string> name;           // "Name"
  std::optional<std::string> localizedName;  // "Name[…]" of the best language there is, else "Name"
};

// The suffixes of localised keys to look for, best first, for a locale such as "sr_RS.UTF-8@latin":
// "sr_RS@latin", "sr_RS", "sr@latin", "sr". None for "C", "POSIX" and the empty text.
[[nodiscard]] std::vector<std::string> localeSuffixes(std::string_view locale);

// The locale in which this process shows messages, from LC_ALL, LC_MESSAGES or LANG. Reads the environment.
[[nodiscard]] std::string messagesLocale();

// Nothing when the text has no group "[Desktop Entry]". Names that are empty, longer than 1,024 bytes or no
// UTF-8 are left out.
[[nodiscard]] std::optional<DesktopEntry> parseDesktopEntry(std::string_view text,
                                                            const std::vector<std::string>& suffixes);

}  // namespace monitor::platform
