// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/MonitorGainKernel.h"

#if defined(__x86_64__)
#include <immintrin.h>

#include <cstdint>

#define MONITOR_GAIN_TARGET "avx512f"
#include "MonitorAudioEngine/MonitorGainVectors.h"

namespace monitor::gain {
namespace {

// GCC 12 warns of its own header where an intrinsic leaves the lanes of no mask undefined; with a mask of all
// lanes the instruction is the same.
constexpr __mmask16 kAll = 0xFFFF;

struct Avx512 {
  using Floats = __m512;
  using Integers = __m512i;
  static constexpr std::size_t kLanes = 16;

  static MONITOR_GAIN_INLINE Floats load(const Sample* at) noexcept { return _mm512_loadu_ps(at); }
  static MONITOR_GAIN_INLINE void store(Sample* at, Floats value) noexcept { _mm512_storeu_ps(at, value); }
  // The first `count` of a vector, fewer than all; nothing behind them is read or written.
  static MONITOR_GAIN_INLINE void multiplyFirst(const Sample* in, Sample* out, std::size_t count,
                                                Floats gains) noexcept {
    const auto first = static_cast<__mmask16>((1U << count) - 1U);
    _mm512_mask_storeu_ps(out, first, _mm512_mul_ps(_mm512_maskz_loadu_ps(first, in), gains));
  }

  static MONITOR_GAIN_INLINE Floats loadGains(const float* at) noexcept { return _mm512_load_ps(at); }
  static MONITOR_GAIN_INLINE void storeGains(float* at, Floats value) noexcept { _mm512_store_ps(at, value); }

  static MONITOR_GAIN_INLINE Floats broadcast(float value) noexcept { return _mm512_set1_ps(value); }
  static MONITOR_GAIN_INLINE Floats add(Floats a, Floats b) noexcept { return _mm512_add_ps(a, b); }
  static MONITOR_GAIN_INLINE Floats multiply(Floats a, Floats b) noexcept { return _mm512_mul_ps(a, b); }
  static MONITOR_GAIN_INLINE Floats divide(Floats a, Floats b) noexcept { return _mm512_div_ps(a, b); }
  static MONITOR_GAIN_INLINE Floats multiplyAdd(Floats a, Floats b, Floats c) noexcept {
    return _mm512_fmadd_ps(a, b, c);
  }
  static MONITOR_GAIN_INLINE Floats negatedMultiplyAdd(Floats a, Floats b, Floats c) noexcept {
    return _mm512_fnmadd_ps(a, b, c);
  }

  static MONITOR_GAIN_INLINE Integers broadcast(std::int32_t value) noexcept {
    return _mm512_set1_epi32(value);
  }
  static MONITOR_GAIN_INLINE Integers add(Integers a, Integers b) noexcept { return _mm512_add_epi32(a, b); }
  static MONITOR_GAIN_INLINE Floats toFloats(Integers value) noexcept {
    return _mm512_maskz_cvtepi32_ps(kAll, value);
  }

  static MONITOR_GAIN_INLINE Integers inOrder() noexcept {
    return _mm512_setr_epi32(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16);
  }
  static MONITOR_GAIN_INLINE Integers inOrderToUnpack() noexcept {
    return _mm512_setr_epi32(1, 2, 9, 10, 3, 4, 11, 12, 5, 6, 13, 14, 7, 8, 15, 16);
  }
  static MONITOR_GAIN_INLINE Floats unpackLow(Floats value) noexcept {
    return _mm512_maskz_unpacklo_ps(kAll, value, value);
  }
  static MONITOR_GAIN_INLINE Floats unpackHigh(Floats value) noexcept {
    return _mm512_maskz_unpackhi_ps(kAll, value, value);
  }
  static MONITOR_GAIN_INLINE Floats firstHalfTwice(Floats value) noexcept {
    return _mm512_maskz_permutexvar_ps(
        kAll, _mm512_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7), value);
  }
  static MONITOR_GAIN_INLINE Floats secondHalfTwice(Floats value) noexcept {
    return _mm512_maskz_permutexvar_ps(
        kAll, _mm512_setr_epi32(8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13, 14, 14, 15, 15), value);
  }
};

MONITOR_GAIN_VECTOR void steady(const Steady& steady, const Sample* in, Sample* out) noexcept {
  steadyBuffer<Avx512>(steady, in, out);
}

MONITOR_GAIN_VECTOR void ramp(const Ramp& ramp, const Sample* const* in, Sample* const* out,
                              std::size_t buffers) noexcept {
  rampBuffers<Avx512>(ramp, in, out, buffers);
}

}  // namespace

const Kernel kAvx512Kernel{"avx512", steady, ramp};

}  // namespace monitor::gain
#endif
