// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/DesktopEntries.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "Platform/Linux/Base/XdgFolders.h"
#include "Platform/Linux/Process/BoundedFile.h"

namespace monitor::platform {
namespace {

constexpr std::size_t kLargestEntry = 1U << 20U;
constexpr std::size_t kMostRemembered = 4096;

// The places of an id below a folder. Each dash may stand for a subfolder; more than one level is not in use.
std::vector<std::string> filesOf(const std::string& id) {
  std::vector<std::string> files{id + ".desktop"};
  for (std::size_t dash = id.find('-'); dash != std::string::npos; dash = id.find('-', dash + 1)) {
    if (id.front() == '.' || dash == 0 || dash + 1 == id.size()) continue;  // never out of the folder
    files.push_back(id.substr(0, dash) + '/' + id.substr(dash + 1) + ".desktop");
  }
  return files;
}

}  // namespace

DesktopEntries::DesktopEntries(std::vector<std::string> folders, const std::string& locale)
    : folders_(std::move(folders)), suffixes_(localeSuffixes(locale)) {}

std::optional<DesktopEntries::Found> DesktopEntries::find(const std::string& id) {
  const std::lock_guard lock(mutex_);
  auto stamps = stampsOfFolders();
  if (stamps != stamps_ || remembered_.size() >= kMostRemembered) {
    remembered_.clear();
    stamps_ = std::move(stamps);
  }
  const auto known = remembered_.find(id);
  if (known != remembered_.end() && stampOf(known->second.found.path) == known->second.file) {
    return known->second.found;
  }
  auto searched = search(id);
  if (!searched) {
    remembered_.erase(id);
    return std::nullopt;
  }
  return remembered_.insert_or_assign(id, std::move(*searched)).first->second.found;
}

std::optional<DesktopEntries::Stamp> DesktopEntries::stampOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return Stamp{status.st_dev, status.st_ino, status.st_mtim, status.st_size};
}

std::vector<std::optional<DesktopEntries::Stamp>> DesktopEntries::stampsOfFolders() const {
  std::vector<std::optional<Stamp>> stamps;
  for (const std::string& folder : folders_) stamps.push_back(stampOf(folder));
  return stamps;
}

std::optional<DesktopEntries::Remembered> DesktopEntries::search(const std::string& id) const {
  const std::vector<std::string> files = filesOf(id);
  for (const std::string& folder : folders_) {
    for (const std::string& file : files) {
      std::string path = folder + '/' + file;
      // Before reading: a change in between must not be taken for known.
      const auto stamp = stampOf(path);
      const auto text = stamp ? readFile(path, kLargestEntry) : std::nullopt;
      auto entry = text ? parseDesktopEntry(*text, suffixes_) : std::nullopt;
      if (!entry) continue;
      // A hidden entry stands for none, also for those of the same id in folders behind this one.
      if (entry->hidden) return std::nullopt;
      return Remembered{Found{std::move(path), std::move(*entry)}, *stamp};
    }
  }
  return std::nullopt;
}

std::vector<std::string> desktopEntryFolders() {
  std::vector<std::string> folders;
  const auto add = [&folders](std::string_view base, const char* below) {
    if (!base.starts_with('/')) return;  // relative folders are to be ignored
    std::string folder(base.substr(0, base.find_last_not_of('/') + 1));
    folder += below;
    if (std::find(folders.begin(), folders.end(), folder) == folders.end())
      folders.push_back(std::move(folder));
  };
  if (const auto home = xdgDataHomeOfThisProcess()) {
    add(*home + '/', "/applications");
    add(*home + '/', "/flatpak/exports/share/applications");
  }
  const char* variable = std::getenv("XDG_DATA_DIRS");
  std::string_view list = variable != nullptr && *variable != '\0' ? variable : "/usr/local/share:/usr/share";
  while (!list.empty()) {
    const std::string_view base = list.substr(0, std::min(list.find(':'), list.size()));
    list.remove_prefix(std::min(base.size() + 1, list.size()));
    add(base, "/applications");
  }
  add("/var/lib/flatpak/exports/share", "/applications");
  add("/var/lib/snapd/desktop", "/applications");
  return folders;
}

}  // namespace monitor::platform
