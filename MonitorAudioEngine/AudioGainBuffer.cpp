// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/AudioGainBuffer.h"

#include "MonitorCore/MonitorError.h"

namespace monitor {

AudioGainBuffer::AudioGainBuffer() : pointer_(MonitorGainCreate()) {
  if (pointer_ != nullptr) return;
  throw MonitorError(MonitorError::kCocoaDomain, MonitorError::kCoderInvalidValue,
                     "The operation couldn’t be completed. (Cocoa error 4866.)");
}

AudioGainBuffer::~AudioGainBuffer() {
  MonitorGainDestroy(pointer_);
}

}  // namespace monitor
