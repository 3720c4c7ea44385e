// SPDX-License-Identifier: MIT
#include "Platform/Linux/Base/LinuxSystemInformation.h"

#include <unistd.h>

#include "MonitorCore/ProgrammingError.h"
#include "Platform/Linux/Base/XdgFolders.h"

namespace monitor::platform {
namespace {

class LinuxSystemInformation final : public SystemInformation {
 public:
  [[nodiscard]] std::optional<OperatingSystemVersion> macOSVersion() const override { return std::nullopt; }
  [[nodiscard]] std::uint32_t userIdentifier() const override { return getuid(); }
  [[nodiscard]] std::int32_t processIdentifier() const override { return getpid(); }
  [[nodiscard]] std::optional<std::string> mainBundleIdentifier() const override { return std::nullopt; }
  [[nodiscard]] std::string applicationSupportFolder() const override {
    const auto folder = xdgDataHomeOfThisProcess();
    if (!folder)
      stopForProgrammingError("this user has no home folder, and XDG_DATA_HOME names no other place");
    return *folder;
  }
};

}  // namespace

std::shared_ptr<SystemInformation> makeSystemInformation() {
  return std::make_shared<LinuxSystemInformation>();
}

}  // namespace monitor::platform
