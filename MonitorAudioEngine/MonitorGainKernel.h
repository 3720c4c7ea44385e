// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

struct MonitorGainState;

namespace monitor::gain {

// A sample that may lie at any address: buffers come from outside, and nothing promises their alignment.
using Sample = float __attribute__((aligned(1), may_alias));

// One ramp over buffers of the same shape, as the channels of a list often are: the gains are the same for
// all.
struct Ramp {
  std::size_t count = 0;     // samples of each buffer
  std::size_t channels = 1;  // interleaved in each buffer, 1 ≤ channels ≤ count
  float from = 1.0F;
  float to = 1.0F;
  bool fromEnd = false;  // see Kernel
};

// One buffer at one gain.
struct Steady {
  std::size_t count = 0;  // samples of the buffer
  float gain = 1.0F;
  bool fromEnd = false;  // see Kernel
};

// The arithmetic of a render for one kind of processor. Every kernel gives the same bits. Realtime: no kernel
// allocates, locks or calls anything.
//
// Unless said otherwise no two of the memory ranges of a call overlap. With `fromEnd` the samples are better
// written from the last to the first, as the last ones are more likely to be in a cache; a kernel may ignore
// that.
struct Kernel {
  const char* name;

  // out[s] = in[s] × gain for all samples.
  void (*steady)(const Steady& steady, const Sample* in, Sample* out) noexcept;

  // out[s] = in[s] × fma(to − from, k / F, from) with k = s / channels + 1 and F = count / channels, both in
  // whole numbers, for each of `buffers` buffers. The last samples of a buffer may be a part of a frame,
  // whose k is then F + 1.
  void (*ramp)(const Ramp& ramp, const Sample* const* in, Sample* const* out, std::size_t buffers) noexcept;
};

// Portable code. Of a single buffer the samples are written in order: input and output may overlap, and the
// input is then read as the samples written before have left it.
extern const Kernel kPortableKernel;
#if defined(__x86_64__)
extern const Kernel kSse2Kernel;    // exact without a fused multiply-add in hardware
extern const Kernel kAvx2Kernel;    // needs AVX2 and FMA
extern const Kernel kAvx512Kernel;  // needs AVX-512 Foundation
#endif

// What the running processor can do, as far as kernels care.
struct CpuFeatures {
  bool avx2 = false;
  bool fma = false;
  bool avx512f = false;
};

[[nodiscard]] CpuFeatures cpuFeatures() noexcept;

// The fastest kernel for a processor with these features.
[[nodiscard]] const Kernel& fastestKernel(CpuFeatures features) noexcept;

// MonitorGainCreate with the kernel named by the caller, which the processor must be able to run.
[[nodiscard]] MonitorGainState* createState(const Kernel& kernel) noexcept;

}  // namespace monitor::gain
