// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

#include "Tests/Tools/AudioLab/Sound.h"
#include "Tools/Demo/Demonstration.h"
#include "Tools/Demo/Measure.h"

namespace monitor::demo {

inline constexpr std::uint64_t kCycleNanoseconds = 5'333'333;

// The begin of a cycle, on the clock of MadeUpRun.
constexpr std::uint64_t cycleTime(std::size_t cycle) {
  return 1'000'000'000 + cycle * kCycleNanoseconds;
}

inline lab::Recording recordingOf(const lab::Sound& routed, const lab::Sound& other) {
  lab::Recording recording;
  recording.channels = {routed.samples, other.samples};
  const std::size_t frames = std::min(routed.samples.size(), other.samples.size());
  for (auto& channel : recording.channels) channel.resize(frames);
  for (std::size_t cycle = 0; cycle * 256 < frames; ++cycle) {
    recording.cycles.push_back({cycle * 256, 256, 7000 + cycle * 256, cycleTime(cycle)});
  }
  return recording;
}

// A demonstration as it should be: every section lasts 100 cycles, requests take effect two cycles later.
struct MadeUpRun {
  lab::Sound routed, other;
  Timeline timeline;

  MadeUpRun() {
    routed.play(102 * 256)
        .ramp(256, 1.0F, 0.4F)
        .play(99 * 256, 0.4F)
        .ramp(256, 0.4F, 0.8F)
        .play(99 * 256, 0.8F);
    routed.play(100 * 256).play(100 * 256, 0.4F).silence(256).skip(256).play(97 * 256);
    other.skip(500).play(routed.samples.size());
    timeline.gainCommand = cycleTime(99);
    timeline.gainRequest = cycleTime(100);
    timeline.changeCommand = cycleTime(200);
    timeline.stopCommand = cycleTime(300);
    timeline.againCommand = cycleTime(400);
    timeline.killed = cycleTime(500);
  }
};

}  // namespace monitor::demo
