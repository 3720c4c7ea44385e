// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>
#include <stdexcept>
#include <string>
#include <utility>

#include "MonitorCore/Ports/AudioHardware.h"

namespace monitor::platform {

// What the calls of the Linux audio adapter answer: 0 or a negative errno value.
namespace audiostatus {

inline constexpr AudioStatus kOk = 0;
inline constexpr AudioStatus kNotMovable = -EPERM;      // a stream may not be moved away from its output
inline constexpr AudioStatus kUnknownObject = -ENOENT;  // no such object, property, registration or procedure
inline constexpr AudioStatus kLinkFailed = -EIO;        // the server refused one of the links
inline constexpr AudioStatus kNoStreamOnDevice = -ENXIO;  // every stream of the program plays elsewhere
inline constexpr AudioStatus kAlreadyTapped = -EBUSY;     // another tap holds one of the processes
inline constexpr AudioStatus kNoDevice = -ENODEV;         // not the default output device
inline constexpr AudioStatus kInvalidArgument = -EINVAL;  // a size or description that makes no sense
inline constexpr AudioStatus kTooManyStreams = -ENOSPC;   // more streams than a route can hold
inline constexpr AudioStatus kNoMemory = -ENOMEM;         // the server's library makes no more objects
inline constexpr AudioStatus kServerGone = -EPIPE;        // no connection to the audio server
inline constexpr AudioStatus kNotPcm = -EOPNOTSUPP;       // a stream that carries encoded audio
inline constexpr AudioStatus kTimedOut = -ETIMEDOUT;      // the server did not answer within the deadline

}  // namespace audiostatus

// The result of one call: a status and, when it is not 0, why.
struct AudioOutcome {
  AudioStatus status = audiostatus::kOk;
  std::string text;

  [[nodiscard]] bool ok() const { return status == audiostatus::kOk; }
  [[nodiscard]] static AudioOutcome failure(AudioStatus status, std::string text) {
    return {status, std::move(text)};
  }
};

// Thrown inside the adapter by constructors that the audio server's library lets down; never leaves it.
class AudioCallError : public std::runtime_error {
 public:
  AudioCallError(AudioStatus status, const std::string& text) : std::runtime_error(text), status_(status) {}
  [[nodiscard]] AudioOutcome outcome() const { return {status_, what()}; }

 private:
  AudioStatus status_;
};

}  // namespace monitor::platform
