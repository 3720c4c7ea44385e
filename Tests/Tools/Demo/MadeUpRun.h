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
  static constexpr std::size_t kKilled = 1100;  // cycle
  lab::Sound routed, other;
  Timeline timeline;

  MadeUpRun() {
    routed.play(102 * 256)
        .ramp(256, 1.0F, 0.4F)
        .play(99 * 256, 0.4F)
        .ramp(256, 0.4F, 0.8F)
        .play(99 * 256, 0.8F)
        .play(100 * 256);
    finish();
    other.skip(500).play(routed.samples.size());
    for (const std::size_t cycle : {100U, 400U, 600U, 800U, 1000U}) {
      timeline.takeovers.push_back({cycleTime(cycle - 1), cycleTime(cycle)});
    }
    timeline.changeCommand = cycleTime(200);
    timeline.stopCommand = cycleTime(300);
    timeline.killed = cycleTime(kKilled);
  }

  // From the second takeover, in cycle 402, to the end.
  void finish() {
    for (int more = 0; more < 3; ++more) routed.play(100 * 256, 0.4F).play(100 * 256);
    routed.play(100 * 256, 0.4F).silence(256).skip(256).play(97 * 256);
  }
};

}  // namespace monitor::demo
