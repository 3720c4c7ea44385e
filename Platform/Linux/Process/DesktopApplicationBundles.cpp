// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/DesktopApplicationBundles.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

#include "Platform/Linux/Process/BoundedFile.h"
#include "Platform/Linux/Process/ControlGroup.h"
#include "Platform/Linux/Process/InfoPropertyList.h"
#include "Platform/Linux/Process/ProcessStat.h"

namespace monitor::platform {
namespace {

constexpr std::size_t kLargestStat = 4096;
constexpr std::size_t kLargestControlGroup = 64U << 10U;
constexpr std::size_t kLargestLabel = 4096;
constexpr std::size_t kLargestFlatpakInfo = 256U << 10U;

}  // namespace

DesktopApplicationBundles::DesktopApplicationBundles(std::string procRoot,
                                                     std::vector<std::string> entryFolders,
                                                     const std::string& locale)
    : procRoot_(std::move(procRoot)), entries_(std::move(entryFolders), locale) {}

std::optional<ApplicationBundle> DesktopApplicationBundles::bundleOfProcess(std::int32_t pid,
                                                                            const std::string& executable) {
  const auto folder = applicationFolderOf(executable);
  const auto information = folder ? readBundleInformation(*folder) : std::nullopt;
  if (!information) return desktopBundle(pid);
  ApplicationBundle bundle{information->identifier, information->displayName, information->name, folder};
  if (!bundle.identifier) {
    if (const auto desktop = desktopBundle(pid)) bundle.identifier = desktop->identifier;
  }
  return bundle;
}

std::string DesktopApplicationBundles::identityKey(std::int32_t pid, const std::string& executable) {
  const Place place = placeOf(pid);
  return executable + '\n' + place.controlGroup + (place.terminal ? "\nterminal" : "");
}

std::string DesktopApplicationBundles::path(std::int32_t pid, const char* name) const {
  return procRoot_ + '/' + std::to_string(pid) + '/' + name;
}

DesktopApplicationBundles::Place DesktopApplicationBundles::placeOf(std::int32_t pid) const {
  Place place;
  if (const auto text = readFile(path(pid, "cgroup"), kLargestControlGroup)) {
    place.controlGroup = controlGroupPath(*text).value_or(std::string_view());
  }
  const auto text = readFile(path(pid, "stat"), kLargestStat);
  const auto stat = text ? parseProcessStat(*text) : std::nullopt;
  place.terminal = stat && stat->terminal != 0;
  return place;
}

std::optional<ApplicationBundle> DesktopApplicationBundles::desktopBundle(std::int32_t pid) {
  const Place place = placeOf(pid);
  if (place.terminal || place.controlGroup.empty() || place.controlGroup == "/") return std::nullopt;
  const std::vector<std::string> identifiers = identifiersOf(pid, place.controlGroup);
  for (const std::string& identifier : identifiers) {
    if (auto found = entries_.find(identifier)) {
      return ApplicationBundle{identifier, std::move(found->entry.localizedName),
                               std::move(found->entry.name), std::move(found->path)};
    }
  }
  if (identifiers.empty()) return std::nullopt;
  return ApplicationBundle{identifiers.front(), std::nullopt, std::nullopt, std::nullopt};
}

// The ids that this process may have, the likeliest first.
std::vector<std::string> DesktopApplicationBundles::identifiersOf(std::int32_t pid,
                                                                  const std::string& controlGroup) const {
  const std::string_view unit = unitOf(controlGroup);
  if (isCommandLineUnit(unit)) return {};
  if (auto snap = snapApplicationOfUnit(unit)) return {std::move(*snap)};
  if (auto flatpak = flatpakIdentifier(pid)) return {std::move(*flatpak)};
  if (const auto label = readFile(path(pid, "attr/current"), kLargestLabel)) {
    if (auto snap = snapApplicationOfLabel(*label)) return {std::move(*snap)};
  }
  return applicationIdsOf(unit);
}

std::optional<std::string> DesktopApplicationBundles::flatpakIdentifier(std::int32_t pid) const {
  const auto text = readFileIn(openFolder(path(pid, "root")), ".flatpak-info", kLargestFlatpakInfo);
  return text ? flatpakIdentifierIn(*text) : std::nullopt;
}

std::optional<std::string> flatpakIdentifierIn(std::string_view information) {
  constexpr std::string_view kName = "name=";
  bool inside = false;
  while (!information.empty()) {
    const std::string_view line = information.substr(0, std::min(information.find('\n'), information.size()));
    information.remove_prefix(std::min(line.size() + 1, information.size()));
    if (line.starts_with('[')) {
      inside = line == "[Application]";
    } else if (inside && line.starts_with(kName)) {
      const std::string_view name = line.substr(kName.size());
      if (!isUsableIdentifier(name)) return std::nullopt;
      return std::string(name);
    }
  }
  return std::nullopt;
}

}  // namespace monitor::platform
