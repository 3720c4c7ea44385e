// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "MonitorCore/Data.h"

namespace monitor {

// The audio service's interface as both ends see it. Every reply is called at most once, from any thread of the
// other end's choosing; a connection that is lost first calls its error handler instead.
class MonitorAudioProtocol {
 public:
  // JSON array of AudioApplication (or nothing when listing failed), and a message to show (or nothing).
  using ApplicationsReply =
      std::function<void(const std::optional<Data>& data, const std::optional<std::string>& message)>;
  // Nothing on success, otherwise a message to show.
  using SetGainReply = std::function<void(const std::optional<std::string>& error)>;
  using StopReply = std::function<void()>;

  virtual ~MonitorAudioProtocol() = default;
  virtual void applications(ApplicationsReply reply) = 0;
  // `gain` is meant to be 0.0…1.0; `processes` is a JSON array of ProcessKey of at most 32768 bytes.
  virtual void setGain(double gain, const Data& processes, SetGainReply reply) = 0;
  virtual void stop(StopReply reply) = 0;
};

// What the platform knows beyond the protocol's own texts.
class MonitorAudioDiagnostics {
 public:
  using LastCauseReply = std::function<void(std::int32_t code, const std::string& text)>;

  virtual ~MonitorAudioDiagnostics() = default;
  // Why this client's last failed request failed; code 0 and an empty text when none has.
  virtual void lastCause(LastCauseReply reply) = 0;
};

}  // namespace monitor
