// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorCore/Ports/AudioHardware.h"

namespace monitor::platform {

// The audio port over CoreAudio. Statuses are OSStatus values as the system returns them.
//
// Denied permission is silence, not a status: the system asks when I/O first starts on an aggregate with a
// tap, and a denied client hears zeros while its frames count. monitor::SilenceWatch and the router's rule
// over it find that out.
[[nodiscard]] std::shared_ptr<AudioHardwareProvider> makeAudioHardwareProvider();

}  // namespace monitor::platform
