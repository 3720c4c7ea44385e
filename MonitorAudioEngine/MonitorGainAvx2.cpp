// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/MonitorGainKernel.h"

#if defined(__x86_64__)
#include <immintrin.h>

#include <cstdint>

#define MONITOR_GAIN_TARGET "avx2,fma"
#include "MonitorAudioEngine/MonitorGainVectors.h"

namespace monitor::gain {
namespace {

struct Avx2 {
  using Floats = __m256;
  using Integers = __m256i;
  static constexpr std::size_t kLanes = 8;

  static MONITOR_GAIN_INLINE Floats load(const Sample* at) noexcept {
    return _mm256_loadu_ps(reinterpret_cast<const float*>(at));
  }
  static MONITOR_GAIN_INLINE void store(Sample* at, Floats value) noexcept {
    _mm256_storeu_ps(reinterpret_cast<float*>(at), value);
  }
  // The first `count` of a vector, fewer than all.
  static MONITOR_GAIN_INLINE void multiplyFirst(const Sample* in, Sample* out, std::size_t count,
                                                Floats gains) noexcept {
    alignas(32) float gain[kLanes];
    _mm256_store_ps(gain, gains);
    for (std::size_t sample = 0; sample < count; ++sample) out[sample] = in[sample] * gain[sample];
  }

  static MONITOR_GAIN_INLINE Floats loadGains(const float* at) noexcept { return _mm256_load_ps(at); }
  static MONITOR_GAIN_INLINE void storeGains(float* at, Floats value) noexcept { _mm256_store_ps(at, value); }

  static MONITOR_GAIN_INLINE Floats broadcast(float value) noexcept { return _mm256_set1_ps(value); }
  static MONITOR_GAIN_INLINE Floats add(Floats a, Floats b) noexcept { return _mm256_add_ps(a, b); }
  static MONITOR_GAIN_INLINE Floats multiply(Floats a, Floats b) noexcept { return _mm256_mul_ps(a, b); }
  static MONITOR_GAIN_INLINE Floats divide(Floats a, Floats b) noexcept { return _mm256_div_ps(a, b); }
  static MONITOR_GAIN_INLINE Floats multiplyAdd(Floats a, Floats b, Floats c) noexcept {
    return _mm256_fmadd_ps(a, b, c);
  }
  static MONITOR_GAIN_INLINE Floats negatedMultiplyAdd(Floats a, Floats b, Floats c) noexcept {
    return _mm256_fnmadd_ps(a, b, c);
  }

  static MONITOR_GAIN_INLINE Integers broadcast(std::int32_t value) noexcept {
    return _mm256_set1_epi32(value);
  }
  static MONITOR_GAIN_INLINE Integers add(Integers a, Integers b) noexcept { return _mm256_add_epi32(a, b); }
  static MONITOR_GAIN_INLINE Floats toFloats(Integers value) noexcept { return _mm256_cvtepi32_ps(value); }

  static MONITOR_GAIN_INLINE Integers inOrder() noexcept { return _mm256_setr_epi32(1, 2, 3, 4, 5, 6, 7, 8); }
  static MONITOR_GAIN_INLINE Integers inOrderToUnpack() noexcept {
    return _mm256_setr_epi32(1, 2, 5, 6, 3, 4, 7, 8);
  }
  static MONITOR_GAIN_INLINE Floats unpackLow(Floats value) noexcept {
    return _mm256_unpacklo_ps(value, value);
  }
  static MONITOR_GAIN_INLINE Floats unpackHigh(Floats value) noexcept {
    return _mm256_unpackhi_ps(value, value);
  }
  static MONITOR_GAIN_INLINE Floats firstHalfTwice(Floats value) noexcept {
    return _mm256_permutevar8x32_ps(value, _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3));
  }
  static MONITOR_GAIN_INLINE Floats secondHalfTwice(Floats value) noexcept {
    return _mm256_permutevar8x32_ps(value, _mm256_setr_epi32(4, 4, 5, 5, 6, 6, 7, 7));
  }
};

MONITOR_GAIN_VECTOR void steady(const Steady& steady, const Sample* in, Sample* out) noexcept {
  steadyBuffer<Avx2>(steady, in, out);
}

MONITOR_GAIN_VECTOR void ramp(const Ramp& ramp, const Sample* const* in, Sample* const* out,
                              std::size_t buffers) noexcept {
  rampBuffers<Avx2>(ramp, in, out, buffers);
}

}  // namespace

const Kernel kAvx2Kernel{"avx2", steady, ramp};

}  // namespace monitor::gain
#endif
