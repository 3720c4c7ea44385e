// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorCore/Ports/ApplicationBundles.h"
#include "MonitorCore/Ports/AudioHardware.h"

namespace monitor::platform {

// The audio system over PipeWire. All views share one connection to the audio server, which is opened in the
// background at once and opened again whenever it was lost.
//
// The server is the one that PIPEWIRE_REMOTE and XDG_RUNTIME_DIR name at the time of each connection.
// `bundles` answers "pbid"; without it every process has an empty bundle identifier. Any thread.
[[nodiscard]] std::shared_ptr<AudioHardwareProvider> makeAudioHardwareProvider(
    std::shared_ptr<ApplicationBundles> bundles = nullptr);

}  // namespace monitor::platform
