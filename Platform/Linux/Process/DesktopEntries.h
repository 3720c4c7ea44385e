// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Linux/Process/DesktopEntry.h"

namespace monitor::platform {

// The desktop entries installed for this user, found by their id: "org.kde.kate" is org.kde.kate.desktop in
// the first folder that has it, and "kde-kate" may also be kde/kate.desktop. Remembers what it found until
// one of the folders or the file changes. Thread-safe.
class DesktopEntries {
 public:
  struct Found {
    std::string path;
    DesktopEntry entry;
  };

  // Folders best first, without trailing slashes; a locale such as "de_DE.UTF-8".
  DesktopEntries(std::vector<std::string> folders, const std::string& locale);

  // Nothing for an id without an entry, and for one whose entry is hidden.
  [[nodiscard]] std::optional<Found> find(const std::string& id);

 private:
  // What tells one state of a file from another.
  struct Stamp {
    dev_t device = 0;
    ino_t inode = 0;
    timespec modified{};
    off_t size = 0;
    friend bool operator==(const Stamp& one, const Stamp& other) {
      return one.device == other.device && one.inode == other.inode && one.size == other.size &&
             one.modified.tv_sec == other.modified.tv_sec && one.modified.tv_nsec == other.modified.tv_nsec;
    }
  };
  struct Remembered {
    Found found;
    Stamp file;
  };

  [[nodiscard]] static std::optional<Stamp> stampOf(const std::string& path);
  [[nodiscard]] std::vector<std::optional<Stamp>> stampsOfFolders() const;
  [[nodiscard]] std::optional<Remembered> search(const std::string& id) const;

  const std::vector<std::string> folders_;
  const std::vector<std::string> suffixes_;
  std::mutex mutex_;
  std::vector<std::optional<Stamp>> stamps_;
  std::map<std::string, Remembered> remembered_;
};

// The folders of this user's entries: the user's own, those of applications in sandboxes, the system's. Reads
// the environment.
[[nodiscard]] std::vector<std::string> desktopEntryFolders();

}  // namespace monitor::platform
