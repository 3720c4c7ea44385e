// SPDX-License-Identifier: MIT
#include "Tools/vesk/Top/PlayingPrograms.h"

#include <algorithm>

namespace monitor::vesk {

std::vector<PlayingProgram> playingPrograms(const std::vector<ActiveAudioApplication>& sounding,
                                            const std::vector<HeldGain>& held) {
  std::vector<PlayingProgram> programs;
  for (const ActiveAudioApplication& application : sounding) {
    programs.push_back({application.id, {}, 1.0, true});
  }
  for (const HeldGain& gain : held) {
    const auto known = std::find_if(programs.begin(), programs.end(),
                                    [&gain](const auto& program) { return program.id == gain.app.id; });
    if (known == programs.end()) {
      programs.push_back({gain.app.id, gain.app.processes, gain.gain, false});
    } else {
      known->processes = gain.app.processes;
      // While it is lost, the program plays unchanged.
      known->gain = gain.state == HoldState::Active ? gain.gain : 1.0;
    }
  }
  return programs;
}

}  // namespace monitor::vesk
