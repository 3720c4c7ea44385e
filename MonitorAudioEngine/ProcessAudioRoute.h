// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "MonitorAudioEngine/AudioGainBuffer.h"
#include "MonitorAudioEngine/SilenceWatch.h"
#include "MonitorCore/Ports/AudioHardware.h"
#include "MonitorCore/ProcessKey.h"

namespace monitor {

// Gives a new random UUID in its usual text form.
using UuidSource = std::function<std::string()>;

// The live machinery that changes one application's volume: a private tap that captures the application's
// processes and mutes them at the output, a private aggregate device from that tap to the output device, and
// an I/O procedure that copies from one to the other through the gain core. Never restarted: a change of
// device, format or processes takes a new route.
//
// Lives on the router's queue; only the gain state and the silence watch are shared with the device's
// realtime thread.
class ProcessAudioRoute {
 public:
  // Builds and starts everything. On failure nothing is left and the call that failed decides the error:
  // AudioRouteError `system` or `invalidFormat`, or MonitorError when there is no memory for the gain state.
  // `now` in the router's seconds. `hardware` outlives the route; so does `silence`, which hears what the
  // route hears, unless it is null.
  ProcessAudioRoute(AudioHardware& hardware, std::vector<ProcessKey> keys, std::vector<AudioObjectID> objects,
                    AudioObjectID output, const UuidSource& makeUuid, double now,
                    SilenceWatch* silence = nullptr);
  ~ProcessAudioRoute();
  ProcessAudioRoute(const ProcessAudioRoute&) = delete;
  ProcessAudioRoute& operator=(const ProcessAudioRoute&) = delete;

  // Stops and destroys the I/O procedure, the aggregate device and the tap, in this order: with the tap its
  // muting ends and normal playback is back. Whatever a call returns, the next one is made. Again: does
  // nothing.
  void tearDown() noexcept;

  [[nodiscard]] const std::vector<ProcessKey>& keys() const { return keys_; }
  [[nodiscard]] const std::vector<AudioObjectID>& objects() const { return objects_; }

  // The gain last set; reached by the end of the next buffer that is rendered.
  void setGain(double gain);
  [[nodiscard]] double gain() const { return gain_; }

  // Compares the render count with the one seen last time: a route that rendered, or whose program does not
  // report output, is active.
  void observe(bool reportsOutput, double now);
  // Whether the program reports output now; for the moments between two observations.
  void noteOutput(bool reportsOutput, double now);
  // For how long the program has been seen to report output without a break; 0 while it does not.
  [[nodiscard]] double outputSeconds(double now) const { return outputSince_ ? now - *outputSince_ : 0.0; }
  [[nodiscard]] double lastActivity() const { return lastActivity_; }
  // Whether the gain core was ever given buffers that do not fit.
  [[nodiscard]] bool failed() const { return MonitorGainFailed(buffer_.pointer()); }

 private:
  ProcessAudioRoute(AudioHardware& hardware, std::vector<ProcessKey> keys, std::vector<AudioObjectID> objects,
                    double now);
  void build(AudioObjectID output, const UuidSource& makeUuid, SilenceWatch* silence);

  AudioHardware& hardware_;
  const std::vector<ProcessKey> keys_;
  const std::vector<AudioObjectID> objects_;
  double gain_ = 1.0;
  AudioObjectID tap_ = 0;
  AudioObjectID device_ = 0;
  AudioIOProcID io_ = 0;
  const AudioGainBuffer buffer_;
  std::uint64_t lastFrames_ = 0;
  double lastActivity_;
  std::optional<double> outputSince_;
};

}  // namespace monitor
