// SPDX-License-Identifier: MIT
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>

namespace monitor {

struct OperatingSystemVersion {
  std::int64_t major = 0;
  std::int64_t minor = 0;
  std::int64_t patch = 0;
  friend constexpr auto operator<=>(const OperatingSystemVersion&, const OperatingSystemVersion&) = default;
};

// Facts about the running system and process. Thread-safe.
class SystemInformation {
 public:
  virtual ~SystemInformation() = default;
  // Nothing on systems that are not macOS; the rules about macOS versions do not apply there.
  [[nodiscard]] virtual std::optional<OperatingSystemVersion> macOSVersion() const = 0;
  // The user id the process runs as.
  [[nodiscard]] virtual std::uint32_t userIdentifier() const = 0;
  [[nodiscard]] virtual std::int32_t processIdentifier() const = 0;
  // Identifier of the main bundle; nothing for a plain program.
  [[nodiscard]] virtual std::optional<std::string> mainBundleIdentifier() const = 0;
  // The user's folder for application data, without a trailing slash. Never empty: a system without one stops the
  // program.
  [[nodiscard]] virtual std::string applicationSupportFolder() const = 0;
};

}  // namespace monitor
