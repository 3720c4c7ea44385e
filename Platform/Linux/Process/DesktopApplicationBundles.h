// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/Ports/ApplicationBundles.h"
#include "Platform/Linux/Process/DesktopEntries.h"

namespace monitor::platform {

// The application of a process: the ".app" folder of its executable where that says what it is, otherwise
// what the desktop itself knows, which is
//
//   the unit it was started in     app-gnome-firefox-2315.scope, app-org.kde.kate@….service
//   the sandbox it lives in        /.flatpak-info at its root, snap.NAME.APP in unit or security label
//
// with names from the desktop entry of that id. Processes of command lines have none: in the units of
// terminals and sessions, with a controlling terminal, or outside of all groups. Thread-safe.
class DesktopApplicationBundles final : public ApplicationBundles {
 public:
  // `procRoot` is /proc or a folder of the same form; the rest as for DesktopEntries.
  DesktopApplicationBundles(std::string procRoot, std::vector<std::string> entryFolders,
                            const std::string& locale);

  std::optional<ApplicationBundle> bundleOfProcess(std::int32_t pid, const std::string& executable) override;
  // Path, control group, and whether there is a controlling terminal.
  std::string identityKey(std::int32_t pid, const std::string& executable) override;

 private:
  // What the kernel says of where a process belongs.
  struct Place {
    std::string controlGroup;  // empty when it is unknown
    bool terminal = false;
  };

  [[nodiscard]] std::string path(std::int32_t pid, const char* name) const;
  [[nodiscard]] Place placeOf(std::int32_t pid) const;
  [[nodiscard]] std::optional<ApplicationBundle> desktopBundle(std::int32_t pid);
  [[nodiscard]] std::vector<std::string> identifiersOf(std::int32_t pid,
                                                       const std::string& controlGroup) const;
  [[nodiscard]] std::optional<std::string> flatpakIdentifier(std::int32_t pid) const;

  std::string procRoot_;
  DesktopEntries entries_;
};

// The id in the text of a sandbox's information file; nothing when it has none.
[[nodiscard]] std::optional<std::string> flatpakIdentifierIn(std::string_view information);

}  // namespace monitor::platform
