// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "MonitorCore/Ports/AudioHardware.h"

namespace monitor {

// The audio engine's one error type. what() is the exact text shown to the user; cause() is what is known
// beyond it, and takes no part in equality.
class AudioRouteError : public std::exception {
 public:
  enum class Case : std::uint8_t {
    System,          // an audio call returned a non-zero status
    InvalidFormat,   // the output or tap format is not one the gain core can render, or there is no output
    ChangedProcess,  // the gain or the selection matches no current application
    TimedOut,        // a route stopped rendering, failed or lost a process
    Unavailable,     // the system is older than macOS 14.2
  };

  // `cause` is what the audio system says of the call that failed.
  [[nodiscard]] static AudioRouteError system(std::int32_t status, AudioFailure cause = {});
  // `cause` says what was found and what was expected.
  [[nodiscard]] static AudioRouteError invalidFormat(std::string cause = {});
  [[nodiscard]] static AudioRouteError changedProcess(std::string cause = {});
  [[nodiscard]] static AudioRouteError timedOut(std::string cause = {});
  [[nodiscard]] static AudioRouteError unavailable();

  [[nodiscard]] Case kind() const noexcept { return kind_; }
  // The status of System; 0 for every other case.
  [[nodiscard]] std::int32_t status() const noexcept { return status_; }
  [[nodiscard]] const char* what() const noexcept override { return text_.c_str(); }
  // Code 0 where the audio system gave none; the text may be empty.
  [[nodiscard]] const AudioFailure& cause() const noexcept { return cause_; }

  friend bool operator==(const AudioRouteError& left, const AudioRouteError& right) {
    return left.kind_ == right.kind_ && left.status_ == right.status_;
  }

 private:
  AudioRouteError(Case kind, std::int32_t status, AudioFailure cause);

  Case kind_;
  std::int32_t status_;
  std::string text_;
  AudioFailure cause_;
};

}  // namespace monitor
