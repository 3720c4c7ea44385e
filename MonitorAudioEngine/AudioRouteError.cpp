// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/AudioRouteError.h"

#include <utility>

namespace monitor {
namespace {

std::string describe(AudioRouteError::Case kind, std::int32_t status) {
  switch (kind) {
    case AudioRouteError::Case::System:
      return "Audio access or routing failed (macOS " + std::to_string(status) +
             "). Normal playback has been restored. Check System Settings → Privacy & Security → Screen & "
             "System "
             "Audio Recording.";
    case AudioRouteError::Case::InvalidFormat:
      return "This output format is not supported for app volume. Use a stereo output. Normal playback is "
             "unchanged.";
    case AudioRouteError::Case::ChangedProcess:
      return "This audio app changed or closed. Refresh the app list.";
    case AudioRouteError::Case::TimedOut:
      return "Audio routing stopped responding. Normal playback has been restored.";
    case AudioRouteError::Case::Unavailable:
      return "App Volume requires macOS 14.2 or later.";
  }
  return {};
}

}  // namespace

AudioRouteError::AudioRouteError(Case kind, std::int32_t status, AudioFailure cause)
    : kind_(kind), status_(status), text_(describe(kind, status)), cause_(std::move(cause)) {}

AudioRouteError AudioRouteError::system(std::int32_t status, AudioFailure cause) {
  return {Case::System, status, std::move(cause)};
}
AudioRouteError AudioRouteError::invalidFormat(std::string cause) {
  return {Case::InvalidFormat, 0, {0, std::move(cause)}};
}
AudioRouteError AudioRouteError::changedProcess(std::string cause) {
  return {Case::ChangedProcess, 0, {0, std::move(cause)}};
}
AudioRouteError AudioRouteError::timedOut(std::string cause) {
  return {Case::TimedOut, 0, {0, std::move(cause)}};
}
AudioRouteError AudioRouteError::unavailable() {
  return {Case::Unavailable, 0, {}};
}

}  // namespace monitor
