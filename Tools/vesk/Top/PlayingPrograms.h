// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "MonitorMac/NativeAudioActivity.h"
#include "Tools/vesk/Agent/HeldGains.h"
#include "Tools/vesk/Top/TopState.h"

namespace monitor::vesk {

// The programs that sound, at the volume that is held for them or else at the full one, and after them those
// that are silent and have one held.
[[nodiscard]] std::vector<PlayingProgram> playingPrograms(const std::vector<ActiveAudioApplication>& sounding,
                                                          const std::vector<HeldGain>& held);

}  // namespace monitor::vesk
