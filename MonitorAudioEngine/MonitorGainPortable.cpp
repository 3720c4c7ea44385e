// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/ExactFusedMultiplyAdd.h"
#include "MonitorAudioEngine/MonitorGainKernel.h"

namespace monitor::gain {
namespace {

constexpr std::size_t kBlockFrames = 64;

std::size_t smaller(std::size_t a, std::size_t b) noexcept {
  return a < b ? a : b;
}

void multiply(const Sample* in, Sample* out, std::size_t count, float gain) noexcept {
  for (std::size_t sample = 0; sample < count; ++sample) out[sample] = in[sample] * gain;
}

void steady(const Steady& steady, const Sample* in, Sample* out) noexcept {
  multiply(in, out, steady.count, steady.gain);
}

void apply(const Sample* in, Sample* out, std::size_t count, std::size_t channels,
           const float* gains) noexcept {
  for (std::size_t begin = 0; begin < count; begin += channels, ++gains) {
    multiply(in + begin, out + begin, smaller(channels, count - begin), *gains);
  }
}

void ramp(const Ramp& ramp, const Sample* const* in, Sample* const* out, std::size_t buffers) noexcept {
  const float difference = ramp.to - ramp.from;
  const auto frames = static_cast<float>(ramp.count / ramp.channels);
  float gains[kBlockFrames];
  std::size_t number = 0;
  for (std::size_t begin = 0; begin < ramp.count; begin += kBlockFrames * ramp.channels) {
    for (float& gain : gains)
      gain = fusedMultiplyAdd(difference, static_cast<float>(++number) / frames, ramp.from);
    const std::size_t samples = smaller(kBlockFrames * ramp.channels, ramp.count - begin);
    for (std::size_t buffer = 0; buffer < buffers; ++buffer) {
      apply(in[buffer] + begin, out[buffer] + begin, samples, ramp.channels, gains);
    }
  }
}

}  // namespace

const Kernel kPortableKernel{"portable", steady, ramp};

}  // namespace monitor::gain
