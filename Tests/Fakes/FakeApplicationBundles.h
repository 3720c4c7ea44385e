// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "MonitorCore/Ports/ApplicationBundles.h"

namespace monitor::fakes {

// Applications by folder, as on a Mac: a process belongs to the bundle whose folder is the first ".app"
// component of its executable, when `folders` has it. `processes` overrides that for single processes, as
// other desktops do.
struct FakeApplicationBundles final : ApplicationBundles {
  std::map<std::string, ApplicationBundle> folders;
  std::map<std::int32_t, ApplicationBundle> processes;
  std::atomic<int> lookups = 0;  // routers ask on several threads

  std::optional<ApplicationBundle> bundleOfProcess(std::int32_t pid, const std::string& executable) override {
    ++lookups;
    if (const auto own = processes.find(pid); own != processes.end()) return own->second;
    const auto folder = applicationFolderOf(executable);
    if (!folder) return std::nullopt;
    const auto found = folders.find(*folder);
    return found != folders.end() ? std::optional(found->second) : std::nullopt;
  }
  std::string identityKey(std::int32_t pid, const std::string& executable) override {
    if (processes.contains(pid)) return "process " + std::to_string(pid);
    return applicationFolderOf(executable).value_or(executable);
  }
};

}  // namespace monitor::fakes
