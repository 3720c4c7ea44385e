// SPDX-License-Identifier: MIT
#pragma once

#include <bit>
#include <cstdint>

namespace monitor::gain {

// a × b + c rounded once, on processors without the instruction. The C library's own way there changes the
// rounding mode and takes 160 ns; this takes two. Results in the range of a gain only: nothing may overflow,
// and none of the three is infinite or not a number.
inline float fusedMultiplyAddInDoubles(float a, float b, float c) noexcept {
  const double product = static_cast<double>(a) * static_cast<double>(b);  // 24 + 24 bits: exact
  const double addend = static_cast<double>(c);
  const double sum = product + addend;
  const double addendPart = sum - product;
  const double error = (product - (sum - addendPart)) + (addend - addendPart);  // exact
  // Rounded to odd instead of to even, the second rounding, to 24 bits, cannot be misled by the first.
  auto bits = std::bit_cast<std::uint64_t>(sum);
  if (error != 0.0 && (bits & 1U) == 0) {
    if ((error > 0.0) == (sum > 0.0)) {
      ++bits;
    } else {
      --bits;
    }
  }
  return static_cast<float>(std::bit_cast<double>(bits));
}

inline float fusedMultiplyAdd(float a, float b, float c) noexcept {
#if defined(__aarch64__) || defined(__FP_FAST_FMAF)
  return __builtin_fmaf(a, b, c);  // one instruction
#else
  return fusedMultiplyAddInDoubles(a, b, c);
#endif
}

}  // namespace monitor::gain
