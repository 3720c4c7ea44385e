// SPDX-License-Identifier: MIT
#include "Platform/Linux/Base/XdgFolders.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

namespace monitor::platform {
namespace {

// The folder without trailing slashes, if it is absolute. The root becomes the empty text, which "/.local" is
// then appended to.
std::optional<std::string> absoluteFolder(const std::optional<std::string>& folder) {
  if (!folder || !folder->starts_with('/')) return std::nullopt;
  return folder->substr(0, folder->find_last_not_of('/') + 1);
}

std::optional<std::string> environment(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr) return std::nullopt;
  return value;
}

std::optional<std::string> homeFromPasswordDatabase() {
  constexpr std::size_t kLargestEntry = 1 << 20;
  for (std::vector<char> buffer(1'024); buffer.size() <= kLargestEntry; buffer.resize(buffer.size() * 4)) {
    passwd entry{};
    passwd* found = nullptr;
    const int status = getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
    if (status == ERANGE) continue;
    if (status != 0 || found == nullptr || found->pw_dir == nullptr) return std::nullopt;
    return found->pw_dir;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> xdgDataHome(const std::optional<std::string>& xdgDataHome,
                                       const std::optional<std::string>& home,
                                       const std::optional<std::string>& passwdHome) {
  if (const auto folder = absoluteFolder(xdgDataHome)) return folder;
  if (const auto folder = userHome(home, passwdHome)) return *folder + "/.local/share";
  return std::nullopt;
}

std::optional<std::string> xdgDataHomeOfThisProcess() {
  return xdgDataHome(environment("XDG_DATA_HOME"), environment("HOME"), homeFromPasswordDatabase());
}

std::optional<std::string> userHome(const std::optional<std::string>& home,
                                    const std::optional<std::string>& passwdHome) {
  if (const auto folder = absoluteFolder(home)) return folder;
  return absoluteFolder(passwdHome);
}

std::optional<std::string> homeOfThisProcess() {
  return userHome(environment("HOME"), homeFromPasswordDatabase());
}

}  // namespace monitor::platform
