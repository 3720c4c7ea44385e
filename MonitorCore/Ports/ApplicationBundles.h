// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace monitor {

// The application a process belongs to, as the desktop knows it.
struct ApplicationBundle {
  std::optional<std::string> identifier;   // never an empty text
  std::optional<std::string> displayName;  // "CFBundleDisplayName", or the desktop entry's localised name
  std::optional<std::string> name;         // "CFBundleName", or the desktop entry's unlocalised name
  std::optional<std::string> path;         // the bundle's folder, or the desktop entry's file
};

// Finds the application of a process. Thread-safe.
class ApplicationBundles {
 public:
  virtual ~ApplicationBundles() = default;
  // `executable` is the process's executable path (possibly empty). Nothing when the process belongs to no
  // application.
  [[nodiscard]] virtual std::optional<ApplicationBundle> bundleOfProcess(std::int32_t pid,
                                                                         const std::string& executable) = 0;
  // A text under which the answer for this process may be cached: processes with the same text have the same bundle.
  [[nodiscard]] virtual std::string identityKey(std::int32_t pid, const std::string& executable) = 0;
};

// The path up to and including its first component (from the root) that ends in ".app"; nothing when none does.
[[nodiscard]] std::optional<std::string> applicationFolderOf(const std::string& executable);

}  // namespace monitor
