// SPDX-License-Identifier: MIT
#pragma once

#include "MonitorAudioEngine/MonitorGain.h"

namespace monitor {

// Ties a gain state's lifetime to its route. Throws MonitorError (Cocoa domain, coder invalid value) when
// there is no memory for one.
class AudioGainBuffer {
 public:
  AudioGainBuffer();
  ~AudioGainBuffer();
  AudioGainBuffer(const AudioGainBuffer&) = delete;
  AudioGainBuffer& operator=(const AudioGainBuffer&) = delete;

  [[nodiscard]] MonitorGainState* pointer() const { return pointer_; }

 private:
  MonitorGainState* const pointer_;
};

}  // namespace monitor
