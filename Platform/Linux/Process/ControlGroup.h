// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace monitor::platform {

// What the service manager's names say of a process. Plain functions over texts.

// The path of the unified hierarchy in a text of the form of /proc/PID/cgroup ("0::/user.slice/…"); nothing
// when it has no such line. Outside of all groups it is "/".
[[nodiscard]] std::optional<std::string_view> controlGroupPath(std::string_view text);

// The innermost unit that is not a slice: "app-gnome-firefox-2315.scope". Groups that a unit keeps inside of
// itself do not count. Empty when there is none.
[[nodiscard]] std::string_view unitOf(std::string_view controlGroup);

// Units of command lines and of whole sessions, whose processes are no application's whatever else they show.
[[nodiscard]] bool isCommandLineUnit(std::string_view unit);

// The application ids that the name of an "app-…" scope or service may stand for, the one that the naming
// rules give first:
//
//   app[-LAUNCHER]-ID-RANDOM.scope      app[-LAUNCHER]-ID[@RANDOM].service      with "\xNN" for what ids may
//   not hold
//
// Launchers that leave dashes in an id make the others possible. Empty for any other unit.
[[nodiscard]] std::vector<std::string> applicationIdsOf(std::string_view unit);

// "NAME_APP", as the desktop entries of that system are called, from the name of a unit
// ("snap.NAME.APP-UUID.scope") or from a security label ("snap.NAME.APP (enforce)"). Nothing for others.
[[nodiscard]] std::optional<std::string> snapApplicationOfUnit(std::string_view unit);
[[nodiscard]] std::optional<std::string> snapApplicationOfLabel(std::string_view label);

// Whether a text may serve as an identifier: 1 to 255 bytes of well-formed UTF-8 without control characters
// and slashes.
[[nodiscard]] bool isUsableIdentifier(std::string_view text);

}  // namespace monitor::platform
