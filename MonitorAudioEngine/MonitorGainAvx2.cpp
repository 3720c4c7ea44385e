// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/MonitorGainKernel.h"

#if defined(__x86_64__)
#include <immintrin.h>

#include <cstdint>

// The instruction set is named function by function and not for the file: an inline function of a library
// header compiled for it could become the program's only copy, and then stop an older processor.
#define MONITOR_GAIN_AVX2 __attribute__((target("avx2,fma")))
#define MONITOR_GAIN_AVX2_INLINE inline __attribute__((target("avx2,fma"), always_inline))

namespace monitor::gain {
namespace {

constexpr std::size_t kLanes = 8;
constexpr std::size_t kLineSamples = 16;  // a cache line

// Up to this size two buffers and their inputs stay in the first-level cache, where four vectors at a time
// are fastest. Beyond, that order of loads and stores costs 40 % over one cache line at a time.
constexpr std::size_t kSmallSamples = 2048;

// Frames whose gains are kept on the stack at a time.
constexpr std::size_t kBlockFrames = 64;

// A frame's position is the quotient of its number k and the count of frames F. Up to this many frames it is
// had without dividing, as k × h + k × l with h the reciprocal of F and l what h lacks of it. Before the last
// rounding that is off by less than 2^-47 of the quotient, and no quotient of whole numbers lies as near as 1
// / (F × 2^25) of itself to the middle between two floats: the rounding comes out as a division's would.
constexpr std::size_t kShortRampFrames = std::size_t{1} << 20U;

MONITOR_GAIN_AVX2_INLINE __m256 load(const Sample* at) noexcept {
  return _mm256_loadu_ps(reinterpret_cast<const float*>(at));
}
MONITOR_GAIN_AVX2_INLINE void store(Sample* at, __m256 value) noexcept {
  _mm256_storeu_ps(reinterpret_cast<float*>(at), value);
}
MONITOR_GAIN_AVX2_INLINE void multiply(const Sample* in, Sample* out, __m256 gains) noexcept {
  store(out, _mm256_mul_ps(load(in), gains));
}

// Samples before the next cache line, 0 to 15; 0 too where no sample begins one.
MONITOR_GAIN_AVX2_INLINE std::size_t samplesToNextLine(const Sample* at) noexcept {
  const auto address = reinterpret_cast<std::uintptr_t>(at);
  if (address % sizeof(float) != 0) return 0;
  return static_cast<std::size_t>((~address + 1) % (kLineSamples * sizeof(float))) / sizeof(float);
}

MONITOR_GAIN_AVX2 void steady(const Sample* in, Sample* out, std::size_t count, float gain) noexcept {
  const __m256 gains = _mm256_set1_ps(gain);
  std::size_t sample = 0;
  if (const std::size_t head = samplesToNextLine(out); head != 0 && count >= kLineSamples) {
    // Vectors that straddle cache lines cost double: one line is written as it lies, and from the next
    // boundary on, some samples for the second time, everything is aligned.
    multiply(in, out, gains);
    multiply(in + kLanes, out + kLanes, gains);
    sample = head;
  }
  if (count <= kSmallSamples) {
    for (; sample + 4 * kLanes <= count; sample += 4 * kLanes) {
      const __m256 first = _mm256_mul_ps(load(in + sample), gains);
      const __m256 second = _mm256_mul_ps(load(in + sample + kLanes), gains);
      const __m256 third = _mm256_mul_ps(load(in + sample + 2 * kLanes), gains);
      const __m256 fourth = _mm256_mul_ps(load(in + sample + 3 * kLanes), gains);
      store(out + sample, first);
      store(out + sample + kLanes, second);
      store(out + sample + 2 * kLanes, third);
      store(out + sample + 3 * kLanes, fourth);
    }
  }
  for (; sample + kLineSamples <= count; sample += kLineSamples) {
    const __m256 first = _mm256_mul_ps(load(in + sample), gains);
    const __m256 second = _mm256_mul_ps(load(in + sample + kLanes), gains);
    store(out + sample, first);
    store(out + sample + kLanes, second);
  }
  for (; sample + kLanes <= count; sample += kLanes) multiply(in + sample, out + sample, gains);
  for (; sample < count; ++sample) out[sample] = in[sample] * gain;
}

// The numbers of eight frames, which need not be in order. Counted as floats while those are exact, which
// saves a conversion per vector.
template <bool kLong>
struct FrameNumbers {
  __m256 numbers;

  MONITOR_GAIN_AVX2_INLINE explicit FrameNumbers(__m256i first) noexcept
      : numbers(_mm256_cvtepi32_ps(first)) {}
  MONITOR_GAIN_AVX2_INLINE void advance(float frames) noexcept {
    numbers = _mm256_add_ps(numbers, _mm256_set1_ps(frames));
  }
  [[nodiscard]] MONITOR_GAIN_AVX2_INLINE __m256 floats() const noexcept { return numbers; }
};

template <>
struct FrameNumbers<true> {
  __m256i numbers;  // at most 2^30 + 16: a buffer's size is a 32-bit count of bytes

  MONITOR_GAIN_AVX2_INLINE explicit FrameNumbers(__m256i first) noexcept : numbers(first) {}
  MONITOR_GAIN_AVX2_INLINE void advance(float frames) noexcept {
    numbers = _mm256_add_epi32(numbers, _mm256_set1_epi32(static_cast<std::int32_t>(frames)));
  }
  [[nodiscard]] MONITOR_GAIN_AVX2_INLINE __m256 floats() const noexcept {
    return _mm256_cvtepi32_ps(numbers);
  }
};

template <bool kLong>
struct Line {
  __m256 difference;
  __m256 from;
  __m256 frames;
  __m256 reciprocal;
  __m256 reciprocalRest;

  MONITOR_GAIN_AVX2_INLINE Line(const Ramp& ramp, std::uint32_t wholeFrames) noexcept
      : difference(_mm256_set1_ps(ramp.to - ramp.from)),
        from(_mm256_set1_ps(ramp.from)),
        frames(_mm256_set1_ps(static_cast<float>(wholeFrames))),
        reciprocal(_mm256_div_ps(_mm256_set1_ps(1.0F), frames)),
        reciprocalRest(
            _mm256_mul_ps(_mm256_fnmadd_ps(reciprocal, frames, _mm256_set1_ps(1.0F)), reciprocal)) {}

  [[nodiscard]] MONITOR_GAIN_AVX2_INLINE __m256 gains(const FrameNumbers<kLong>& eight) const noexcept {
    return _mm256_fmadd_ps(difference, positions(eight.floats()), from);
  }

 private:
  [[nodiscard]] MONITOR_GAIN_AVX2_INLINE __m256 positions(__m256 numbers) const noexcept {
    if constexpr (kLong) return _mm256_div_ps(numbers, frames);
    return _mm256_fmadd_ps(numbers, reciprocal, _mm256_mul_ps(numbers, reciprocalRest));
  }
};

// The numbers of the eight frames from the one of index `frame` on, in this order.
template <bool kLong>
MONITOR_GAIN_AVX2_INLINE FrameNumbers<kLong> numbersFrom(std::size_t frame, __m256i order) noexcept {
  return FrameNumbers<kLong>(_mm256_add_epi32(_mm256_set1_epi32(static_cast<std::int32_t>(frame)), order));
}

MONITOR_GAIN_AVX2_INLINE __m256i inOrder() noexcept {
  return _mm256_setr_epi32(1, 2, 3, 4, 5, 6, 7, 8);
}

MONITOR_GAIN_AVX2_INLINE void applyMono(const Sample* in, Sample* out, std::size_t count,
                                        const float* gains) noexcept {
  std::size_t sample = 0;
  for (; sample + kLanes <= count; sample += kLanes) {
    multiply(in + sample, out + sample, _mm256_load_ps(gains + sample));
  }
  for (; sample < count; ++sample) out[sample] = in[sample] * gains[sample];
}

MONITOR_GAIN_AVX2_INLINE void applyStereo(const Sample* in, Sample* out, std::size_t count,
                                          const float* gains) noexcept {
  const __m256i firstFour = _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3);
  const __m256i lastFour = _mm256_setr_epi32(4, 4, 5, 5, 6, 6, 7, 7);
  std::size_t sample = 0;
  for (; sample + 2 * kLanes <= count; sample += 2 * kLanes) {
    const __m256 eight = _mm256_load_ps(gains + sample / 2);
    multiply(in + sample, out + sample, _mm256_permutevar8x32_ps(eight, firstFour));
    multiply(in + sample + kLanes, out + sample + kLanes, _mm256_permutevar8x32_ps(eight, lastFour));
  }
  for (; sample < count; ++sample) out[sample] = in[sample] * gains[sample / 2];
}

// Interleaved frames of any size. A frame is written in whole vectors that may reach into the frames behind
// it; those are written later, so that only the end of the buffer, `room` samples away, needs single samples.
MONITOR_GAIN_AVX2_INLINE void applyFrames(const Sample* in, Sample* out, std::size_t count, std::size_t room,
                                          std::size_t channels, const float* gains) noexcept {
  for (std::size_t begin = 0; begin < count; begin += channels, ++gains) {
    const __m256 gain = _mm256_set1_ps(*gains);
    const std::size_t end = channels < count - begin ? begin + channels : count;
    std::size_t sample = begin;
    for (; sample < end && sample + kLanes <= room; sample += kLanes)
      multiply(in + sample, out + sample, gain);
    for (; sample < end; ++sample) out[sample] = in[sample] * *gains;
  }
}

// Buffers of any shape and number, from `sample` on, where the frame of index `frame` begins.
template <bool kLong>
MONITOR_GAIN_AVX2_INLINE void rampAny(const Ramp& ramp, const Line<kLong>& line, const Sample* const* in,
                                      Sample* const* out, std::size_t buffers, std::size_t sample,
                                      std::size_t frame) noexcept {
  FrameNumbers<kLong> numbers = numbersFrom<kLong>(frame, inOrder());
  alignas(32) float gains[kBlockFrames];
  for (; sample < ramp.count; sample += kBlockFrames * ramp.channels) {
    const std::size_t room = ramp.count - sample;
    const std::size_t count = room < kBlockFrames * ramp.channels ? room : kBlockFrames * ramp.channels;
    for (std::size_t index = 0; index < kBlockFrames && index * ramp.channels < count; index += kLanes) {
      _mm256_store_ps(gains + index, line.gains(numbers));
      numbers.advance(kLanes);
    }
    for (std::size_t buffer = 0; buffer < buffers; ++buffer) {
      if (ramp.channels == 1) {
        applyMono(in[buffer] + sample, out[buffer] + sample, count, gains);
      } else if (ramp.channels == 2) {
        applyStereo(in[buffer] + sample, out[buffer] + sample, count, gains);
      } else {
        applyFrames(in[buffer] + sample, out[buffer] + sample, count, room, ramp.channels, gains);
      }
    }
  }
}

// Two samples of each of eight frames. The frames' order in `eight` is such that unpacking puts each gain
// beside itself in the order of the samples.
MONITOR_GAIN_AVX2_INLINE void multiplyStereo(const Sample* in, Sample* out, __m256 eight) noexcept {
  multiply(in, out, _mm256_unpacklo_ps(eight, eight));
  multiply(in + kLanes, out + kLanes, _mm256_unpackhi_ps(eight, eight));
}

template <bool kLong>
MONITOR_GAIN_AVX2_INLINE void rampStereo(const Ramp& ramp, const Line<kLong>& line, const Sample* in,
                                         Sample* out) noexcept {
  const __m256i order = _mm256_setr_epi32(1, 2, 5, 6, 3, 4, 7, 8);
  std::size_t sample = 0;
  if (const std::size_t head = samplesToNextLine(out);
      head != 0 && head % 2 == 0 && ramp.count >= kLineSamples) {
    multiplyStereo(in, out, line.gains(FrameNumbers<kLong>(order)));
    sample = head;
  }
  FrameNumbers<kLong> even = numbersFrom<kLong>(sample / 2, order);
  FrameNumbers<kLong> odd = even;
  odd.advance(kLanes);
  for (; sample + 4 * kLanes <= ramp.count; sample += 4 * kLanes) {  // two chains of arithmetic side by side
    const __m256 evenGains = line.gains(even);
    const __m256 oddGains = line.gains(odd);
    even.advance(2 * kLanes);
    odd.advance(2 * kLanes);
    multiplyStereo(in + sample, out + sample, evenGains);
    multiplyStereo(in + sample + 2 * kLanes, out + sample + 2 * kLanes, oddGains);
  }
  if (sample < ramp.count) rampAny(ramp, line, &in, &out, 1, sample, sample / 2);
}

template <bool kLong>
MONITOR_GAIN_AVX2_INLINE void rampTwoMono(const Ramp& ramp, const Line<kLong>& line, const Sample* const* in,
                                          Sample* const* out) noexcept {
  const Sample* leftIn = in[0];
  const Sample* rightIn = in[1];
  Sample* leftOut = out[0];
  Sample* rightOut = out[1];
  std::size_t sample = 0;
  if (const std::size_t head = samplesToNextLine(leftOut);
      head != 0 && head == samplesToNextLine(rightOut) && ramp.count >= kLineSamples) {
    FrameNumbers<kLong> first(inOrder());
    const __m256 gains = line.gains(first);
    first.advance(kLanes);
    const __m256 nextGains = line.gains(first);
    multiply(leftIn, leftOut, gains);
    multiply(leftIn + kLanes, leftOut + kLanes, nextGains);
    multiply(rightIn, rightOut, gains);
    multiply(rightIn + kLanes, rightOut + kLanes, nextGains);
    sample = head;
  }
  FrameNumbers<kLong> even = numbersFrom<kLong>(sample, inOrder());
  FrameNumbers<kLong> odd = even;
  odd.advance(kLanes);
  for (; sample + 2 * kLanes <= ramp.count; sample += 2 * kLanes) {
    const __m256 evenGains = line.gains(even);
    const __m256 oddGains = line.gains(odd);
    even.advance(2 * kLanes);
    odd.advance(2 * kLanes);
    multiply(leftIn + sample, leftOut + sample, evenGains);
    multiply(leftIn + sample + kLanes, leftOut + sample + kLanes, oddGains);
    multiply(rightIn + sample, rightOut + sample, evenGains);
    multiply(rightIn + sample + kLanes, rightOut + sample + kLanes, oddGains);
  }
  if (sample < ramp.count) rampAny(ramp, line, in, out, 2, sample, sample);
}

template <bool kLong>
MONITOR_GAIN_AVX2_INLINE void rampOf(const Ramp& ramp, std::uint32_t wholeFrames, const Sample* const* in,
                                     Sample* const* out, std::size_t buffers) noexcept {
  const Line<kLong> line(ramp, wholeFrames);
  if (ramp.channels == 2 && buffers == 1) {
    rampStereo(ramp, line, in[0], out[0]);
  } else if (ramp.channels == 1 && buffers == 2) {
    rampTwoMono(ramp, line, in, out);
  } else {
    rampAny(ramp, line, in, out, buffers, 0, 0);
  }
}

MONITOR_GAIN_AVX2 void ramp(const Ramp& ramp, const Sample* const* in, Sample* const* out,
                            std::size_t buffers) noexcept {
  // In 32 bits, which hold every count of samples: the wider division takes as long as a dozen vectors.
  const std::uint32_t frames =
      static_cast<std::uint32_t>(ramp.count) / static_cast<std::uint32_t>(ramp.channels);
  if (frames <= kShortRampFrames) {
    rampOf<false>(ramp, frames, in, out, buffers);
  } else {
    rampOf<true>(ramp, frames, in, out, buffers);
  }
}

}  // namespace

const Kernel kAvx2Kernel{"avx2", steady, ramp};

}  // namespace monitor::gain
#endif
