// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/MonitorGainKernel.h"

#if defined(__x86_64__)
#include <emmintrin.h>

#include "MonitorAudioEngine/ExactFusedMultiplyAdd.h"

namespace monitor::gain {
namespace {

constexpr std::size_t kLanes = 4;
constexpr std::size_t kBlockFrames = 64;

std::size_t smaller(std::size_t a, std::size_t b) noexcept {
  return a < b ? a : b;
}

__m128 load(const Sample* at) noexcept {
  return _mm_loadu_ps(reinterpret_cast<const float*>(at));
}
void store(Sample* at, __m128 value) noexcept {
  _mm_storeu_ps(reinterpret_cast<float*>(at), value);
}

struct Line {
  float difference;
  float from;
  float frames;
};

// Once more, one by one.
void gainsOneByOne(const Line& line, __m128 positions, float* gains) noexcept {
  alignas(16) float position[kLanes];
  _mm_store_ps(position, positions);
  for (std::size_t lane = 0; lane < kLanes; ++lane) {
    gains[lane] = fusedMultiplyAddInDoubles(line.difference, position[lane], line.from);
  }
}

// The gains of up to kBlockFrames frames, in whole vectors; returns the numbers of the frames behind them.
//
// Product and sum in doubles are right but for one trap: a sum that was rounded onto the middle between two
// floats no longer tells on which side it was. In the normal range that middle is one pattern of the low 29
// bits, and below it everything is suspect; those rare vectors are done again.
__m128i gainsOfBlock(const Line& line, __m128i numbers, std::size_t frames, float* gains) noexcept {
  const __m128 count = _mm_set1_ps(line.frames);
  const __m128d difference = _mm_set1_pd(static_cast<double>(line.difference));
  const __m128d from = _mm_set1_pd(static_cast<double>(line.from));
  for (std::size_t frame = 0; frame < frames; frame += kLanes) {
    const __m128 positions = _mm_div_ps(_mm_cvtepi32_ps(numbers), count);
    numbers = _mm_add_epi32(numbers, _mm_set1_epi32(kLanes));
    const __m128 upper = _mm_movehl_ps(positions, positions);
    const __m128d low = _mm_add_pd(_mm_mul_pd(difference, _mm_cvtps_pd(positions)), from);
    const __m128d high = _mm_add_pd(_mm_mul_pd(difference, _mm_cvtps_pd(upper)), from);
    const __m128 rounded = _mm_movelh_ps(_mm_cvtpd_ps(low), _mm_cvtpd_ps(high));
    _mm_store_ps(gains + frame, rounded);

    const __m128i lowWords =
        _mm_castps_si128(_mm_shuffle_ps(_mm_castpd_ps(low), _mm_castpd_ps(high), _MM_SHUFFLE(2, 0, 2, 0)));
    const __m128i middle =
        _mm_cmpeq_epi32(_mm_and_si128(lowWords, _mm_set1_epi32(0x1FFFFFFF)), _mm_set1_epi32(0x10000000));
    const __m128 magnitude = _mm_andnot_ps(_mm_set1_ps(-0.0F), rounded);
    const __m128 tiny = _mm_cmple_ps(magnitude, _mm_set1_ps(0x1p-126F));
    if (_mm_movemask_ps(_mm_or_ps(_mm_castsi128_ps(middle), tiny)) != 0) {
      gainsOneByOne(line, positions, gains + frame);
    }
  }
  return numbers;
}

void multiply(const Sample* in, Sample* out, std::size_t count, float gain) noexcept {
  const __m128 gains = _mm_set1_ps(gain);
  std::size_t sample = 0;
  for (; sample + kLanes <= count; sample += kLanes)
    store(out + sample, _mm_mul_ps(load(in + sample), gains));
  for (; sample < count; ++sample) out[sample] = in[sample] * gain;
}

void steady(const Steady& steady, const Sample* in, Sample* out) noexcept {
  multiply(in, out, steady.count, steady.gain);
}

void applyMono(const Sample* in, Sample* out, std::size_t count, const float* gains) noexcept {
  std::size_t sample = 0;
  for (; sample + kLanes <= count; sample += kLanes) {
    store(out + sample, _mm_mul_ps(load(in + sample), load(gains + sample)));
  }
  for (; sample < count; ++sample) out[sample] = in[sample] * gains[sample];
}

void applyStereo(const Sample* in, Sample* out, std::size_t count, const float* gains) noexcept {
  std::size_t sample = 0;
  for (; sample + 2 * kLanes <= count; sample += 2 * kLanes) {
    const __m128 four = load(gains + sample / 2);
    store(out + sample, _mm_mul_ps(load(in + sample), _mm_unpacklo_ps(four, four)));
    store(out + sample + kLanes, _mm_mul_ps(load(in + sample + kLanes), _mm_unpackhi_ps(four, four)));
  }
  for (; sample < count; ++sample) out[sample] = in[sample] * gains[sample / 2];
}

void applyAny(const Sample* in, Sample* out, std::size_t count, std::size_t channels,
              const float* gains) noexcept {
  for (std::size_t begin = 0; begin < count; begin += channels, ++gains) {
    multiply(in + begin, out + begin, smaller(channels, count - begin), *gains);
  }
}

void apply(const Sample* in, Sample* out, std::size_t count, std::size_t channels,
           const float* gains) noexcept {
  if (channels == 1) {
    applyMono(in, out, count, gains);
  } else if (channels == 2) {
    applyStereo(in, out, count, gains);
  } else {
    applyAny(in, out, count, channels, gains);
  }
}

void ramp(const Ramp& ramp, const Sample* const* in, Sample* const* out, std::size_t buffers) noexcept {
  const Line line{ramp.to - ramp.from, ramp.from, static_cast<float>(ramp.count / ramp.channels)};
  __m128i numbers =
      _mm_setr_epi32(1, 2, 3, 4);  // at most 2^30 + 4: a buffer's size is a 32-bit count of bytes
  alignas(16) float gains[kBlockFrames];
  for (std::size_t begin = 0; begin < ramp.count; begin += kBlockFrames * ramp.channels) {
    const std::size_t samples = smaller(kBlockFrames * ramp.channels, ramp.count - begin);
    numbers = gainsOfBlock(line, numbers, (samples + ramp.channels - 1) / ramp.channels, gains);
    for (std::size_t buffer = 0; buffer < buffers; ++buffer) {
      apply(in[buffer] + begin, out[buffer] + begin, samples, ramp.channels, gains);
    }
  }
}

}  // namespace

const Kernel kSse2Kernel{"sse2", steady, ramp};

}  // namespace monitor::gain
#endif
