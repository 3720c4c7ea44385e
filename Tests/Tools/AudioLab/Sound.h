// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "Tools/AudioLab/CounterSignal.h"

namespace monitor::lab {

// A made-up program: what it plays goes on or is skipped, and is heard at some gain.
class Sound {
 public:
  Sound& play(std::size_t frames, float gain = 1.0F) {
    for (std::size_t i = 0; i < frames; ++i) samples.push_back(counterValue(next_++) * gain);
    return *this;
  }
  // As the render does: frame i of n is scaled by from + (to - from) * (i + 1) / n.
  Sound& ramp(std::size_t frames, float from, float to) {
    for (std::size_t i = 0; i < frames; ++i) {
      const float share = static_cast<float>(i + 1) / static_cast<float>(frames);
      samples.push_back(counterValue(next_++) * std::fma(to - from, share, from));
    }
    return *this;
  }
  Sound& silence(std::size_t frames) {
    samples.insert(samples.end(), frames, 0.0F);
    return *this;
  }
  Sound& skip(std::size_t frames) {
    next_ += frames;
    return *this;
  }
  Sound& goBack(std::size_t frames) {
    next_ -= frames;
    return *this;
  }
  std::vector<float> samples;

 private:
  std::uint64_t next_ = 3000;
};

}  // namespace monitor::lab
