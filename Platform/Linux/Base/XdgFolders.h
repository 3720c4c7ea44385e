// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

namespace monitor::platform {

// The user's folder for application data by the base directory rules, without a trailing slash: `xdgDataHome`
// (the variable XDG_DATA_HOME) when it is absolute, otherwise .local/share below the user's home. The home is
// `home` (the variable HOME) when it is absolute, otherwise `passwdHome` (the home in the password database).
// Nothing where none of the three helps. The root folder is the empty text, to which a path can be appended
// as to any other.
[[nodiscard]] std::optional<std::string> xdgDataHome(const std::optional<std::string>& xdgDataHome,
                                                     const std::optional<std::string>& home,
                                                     const std::optional<std::string>& passwdHome);

// The same for the running process. Reads the environment, so no other thread may change it meanwhile. Any
// thread.
[[nodiscard]] std::optional<std::string> xdgDataHomeOfThisProcess();

// The home itself, by the same rule and in the same form.
[[nodiscard]] std::optional<std::string> userHome(const std::optional<std::string>& home,
                                                  const std::optional<std::string>& passwdHome);
[[nodiscard]] std::optional<std::string> homeOfThisProcess();

}  // namespace monitor::platform
