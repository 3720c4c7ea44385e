// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace monitor {

// An error as the platform's clients know it: a domain, a code, and the description shown to the user as what().
class MonitorError : public std::runtime_error {
 public:
  static constexpr std::string_view kCocoaDomain = "NSCocoaErrorDomain";
  static constexpr std::string_view kMonitorDomain = "Monitor";
  static constexpr std::string_view kPosixDomain = "NSPOSIXErrorDomain";

  // Codes of the Cocoa domain that the system raises itself.
  static constexpr std::int64_t kReadTooLarge = 263;
  static constexpr std::int64_t kPropertyListReadCorrupt = 3840;
  static constexpr std::int64_t kConnectionInvalid = 4099;
  static constexpr std::int64_t kCoderInvalidValue = 4866;

  // Codes of the Monitor domain.
  static constexpr std::int64_t kCollectionFailed = 1;  // the power-metrics run failed
  static constexpr std::int64_t kNoReadings = 2;        // the helper returned no readings

  MonitorError(std::string_view domain, std::int64_t code, const std::string& description)
      : std::runtime_error(description), domain_(domain), code_(code) {}

  [[nodiscard]] const std::string& domain() const noexcept { return domain_; }
  [[nodiscard]] std::int64_t code() const noexcept { return code_; }

  friend bool operator==(const MonitorError& left, const MonitorError& right) {
    return left.domain_ == right.domain_ && left.code_ == right.code_ &&
           std::string_view(left.what()) == right.what();
  }

 private:
  std::string domain_;
  std::int64_t code_;
};

}  // namespace monitor
