// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/Listening.h"

#include <thread>

#include "Tools/AudioLab/Analyser.h"

namespace monitor::lab {

std::optional<Heard> waitForGain(const Recorder& recorder, std::size_t channel, double gain, std::size_t from,
                                 Milliseconds deadline, std::size_t shortest) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  for (std::size_t start = from;;) {
    const std::size_t now = recorder.frames();
    const Recording recording = recorder.recording(start);
    const auto stretches = findStretches(recording.channels.at(channel));
    if (const auto* found = findSteady(stretches, gain, 1e-6, 0, shortest)) {
      const auto before = recorder.recording(from).channels.at(channel);
      const std::size_t first = start + found->first;
      const auto silent = measureSteadiness(findStretches(before), 0, first - from).silentFrames;
      return Heard{first, found->gain, silent};
    }
    if (std::chrono::steady_clock::now() > end) return std::nullopt;
    // What has been looked at need not be again, but for a stretch that may just have begun.
    if (now > start + shortest) start = now - shortest;
    std::this_thread::sleep_for(Milliseconds(10));
  }
}

}  // namespace monitor::lab
