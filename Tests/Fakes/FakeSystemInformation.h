// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "MonitorCore/Ports/SystemInformation.h"

namespace monitor::fakes {

// A system whose facts the test sets. By default not a Mac, so that no rule about macOS versions applies.
struct FakeSystemInformation final : SystemInformation {
  std::optional<OperatingSystemVersion> version;
  std::uint32_t user = 501;
  std::int32_t process = 99;
  std::optional<std::string> bundle;
  std::string dataFolder = "/home/me/data";

  [[nodiscard]] std::optional<OperatingSystemVersion> macOSVersion() const override { return version; }
  [[nodiscard]] std::uint32_t userIdentifier() const override { return user; }
  [[nodiscard]] std::int32_t processIdentifier() const override { return process; }
  [[nodiscard]] std::optional<std::string> mainBundleIdentifier() const override { return bundle; }
  [[nodiscard]] std::string applicationSupportFolder() const override { return dataFolder; }
};

}  // namespace monitor::fakes
