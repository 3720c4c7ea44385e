// SPDX-License-Identifier: MIT
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "MonitorAudioEngine/MonitorGainKernel.h"

// What the kernels with a fused multiply-add in hardware have in common, over a type `V` of their vectors.
// The file of a kernel names its instruction set in MONITOR_GAIN_TARGET before it includes this one, once.
//
// The instruction set is named function by function and not for the file: an inline function of a library
// header compiled for it could become the program's only copy, and then stop an older processor.
#if defined(MONITOR_GAIN_TARGET)
#define MONITOR_GAIN_VECTOR __attribute__((target(MONITOR_GAIN_TARGET)))
#define MONITOR_GAIN_INLINE inline __attribute__((target(MONITOR_GAIN_TARGET), always_inline))
#else
#define MONITOR_GAIN_VECTOR
#define MONITOR_GAIN_INLINE inline __attribute__((always_inline))  // read alone, as a syntax check does
#endif

namespace monitor::gain {
namespace {

constexpr std::size_t kLineSamples = 16;  // a cache line

// Frames whose gains are kept on the stack at a time.
constexpr std::size_t kBlockFrames = 64;

// A frame's position is the quotient of its number k and the count of frames F. Up to this many frames it is
// had without dividing, as k × h + k × l with h the reciprocal of F and l what h lacks of it. Before the last
// rounding that is off by less than 2^-47 of the quotient, and no quotient of whole numbers lies as near as 1
// / (F × 2^25) of itself to the middle between two floats: the rounding comes out as a division's would.
constexpr std::size_t kShortRampFrames = std::size_t{1} << 20U;

// An address that stays in one register: where the compiler adds it up anew for each access, the loads of a
// round no longer leave together.
template <class At>
MONITOR_GAIN_INLINE At kept(At address) noexcept {
  asm("" : "+r"(address));
  return address;
}

// The n-th of `count` steps of a walk.
template <bool kFromEnd>
constexpr std::size_t stepOf(std::size_t n, std::size_t count) noexcept {
  return kFromEnd ? count - 1 - n : n;
}

// A vector's worth.
template <class V>
MONITOR_GAIN_INLINE void multiply(const Sample* in, Sample* out, typename V::Floats gains) noexcept {
  V::store(out, V::multiply(V::load(in), gains));
}

// A cache line's worth.
template <class V>
MONITOR_GAIN_INLINE void multiplyLine(const Sample* in, Sample* out, typename V::Floats gains) noexcept {
  for (std::size_t sample = 0; sample < kLineSamples; sample += V::kLanes)
    multiply<V>(in + sample, out + sample, gains);
}

// At most a vector, and nothing behind `count` samples.
template <class V>
MONITOR_GAIN_INLINE void multiplyUpTo(const Sample* in, Sample* out, std::size_t count,
                                      typename V::Floats gains) noexcept {
  if (count >= V::kLanes) {
    multiply<V>(in, out, gains);
  } else {
    V::multiplyFirst(in, out, count, gains);
  }
}

// Samples before the next cache line, 0 to 15; 0 too where no sample begins one.
[[maybe_unused]] MONITOR_GAIN_INLINE std::size_t samplesToNextLine(const Sample* at) noexcept {
  const auto address = reinterpret_cast<std::uintptr_t>(at);
  if (address % sizeof(float) != 0) return 0;
  return static_cast<std::size_t>((~address + 1) % (kLineSamples * sizeof(float))) / sizeof(float);
}

template <class V, bool kFromEnd>
MONITOR_GAIN_INLINE void steadySamples(const Steady& steady, const Sample* in, Sample* out) noexcept {
  // A round's lines, each before the next: beyond the first-level cache four loads and then four stores cost
  // up to 40 % more. From the end rounds of two measured faster.
  constexpr std::size_t kLines = kFromEnd ? 2 : 4;
  const auto gains = V::broadcast(steady.gain);
  const std::size_t count = steady.count;
  std::size_t sample = 0;
  if (const std::size_t head = samplesToNextLine(out); head != 0 && count >= kLineSamples) {
    // Vectors that straddle cache lines cost double: one line is written as it lies, and from the next
    // boundary on, some samples for the second time, everything is aligned.
    multiplyLine<V>(in, out, gains);
    sample = head;
  }
  const std::size_t rounds = (count - sample) / (kLines * kLineSamples);
  for (std::size_t round = 0; round < rounds; ++round) {
    const std::size_t at = sample + stepOf<kFromEnd>(round, rounds) * kLines * kLineSamples;
    const Sample* from = kept(in + at);
    Sample* to = kept(out + at);
    for (std::size_t line = 0; line < kLines; ++line) {
      const std::size_t place = stepOf<kFromEnd>(line, kLines) * kLineSamples;
      multiplyLine<V>(from + place, to + place, gains);
    }
  }
  sample += rounds * kLines * kLineSamples;
  for (; sample + V::kLanes <= count; sample += V::kLanes) multiply<V>(in + sample, out + sample, gains);
  if (sample < count) V::multiplyFirst(in + sample, out + sample, count - sample, gains);
}

template <class V>
MONITOR_GAIN_INLINE void steadyBuffer(const Steady& steady, const Sample* in, Sample* out) noexcept {
  if (steady.fromEnd) return steadySamples<V, true>(steady, in, out);
  steadySamples<V, false>(steady, in, out);
}

// How the gain of a frame is had from its number k, for F frames and a difference d of the gains.
enum class Position : std::uint8_t {
  Slope,  // d / F × k: F is a power of two, as most buffers' is, and both the quotient and k / F are exact
  Reciprocal,  // the quotient by multiplying, see above
  Quotient,    // by dividing
};

// The numbers of a vector of frames, which need not be in order. Counted as floats while those are exact,
// which saves a conversion per vector.
template <class V, Position kPosition>
struct FrameNumbers {
  typename V::Floats numbers;

  FrameNumbers() = default;
  MONITOR_GAIN_INLINE explicit FrameNumbers(typename V::Integers first) noexcept
      : numbers(V::toFloats(first)) {}
  MONITOR_GAIN_INLINE void advance(float frames) noexcept { numbers = V::add(numbers, V::broadcast(frames)); }
  [[nodiscard]] MONITOR_GAIN_INLINE typename V::Floats floats() const noexcept { return numbers; }
};

template <class V>
struct FrameNumbers<V, Position::Quotient> {
  typename V::Integers numbers;  // at most 2^30 + 32: a buffer's size is a 32-bit count of bytes

  FrameNumbers() = default;
  MONITOR_GAIN_INLINE explicit FrameNumbers(typename V::Integers first) noexcept : numbers(first) {}
  MONITOR_GAIN_INLINE void advance(float frames) noexcept {
    numbers = V::add(numbers, V::broadcast(static_cast<std::int32_t>(frames)));
  }
  [[nodiscard]] MONITOR_GAIN_INLINE typename V::Floats floats() const noexcept {
    return V::toFloats(numbers);
  }
};

// Whole frames of a buffer. Divisions are for the rest: one takes as long as a dozen vectors.
[[maybe_unused]] MONITOR_GAIN_INLINE std::uint32_t wholeFrames(const Ramp& ramp) noexcept {
  const auto samples = static_cast<std::uint32_t>(ramp.count);  // a buffer's size is a 32-bit count of bytes
  if (ramp.channels == 1) return samples;
  if (ramp.channels == 2) return samples / 2;
  return samples / static_cast<std::uint32_t>(ramp.channels);
}

[[maybe_unused]] MONITOR_GAIN_INLINE float reciprocalOf(std::uint32_t frames) noexcept {
  constexpr std::uint32_t kExponentOfOne = 127;
  constexpr std::uint32_t kFractionBits = 23;
  if (!std::has_single_bit(frames)) return 1.0F / static_cast<float>(frames);
  const auto exponent = kExponentOfOne - static_cast<std::uint32_t>(std::countr_zero(frames));
  return std::bit_cast<float>(exponent << kFractionBits);
}

// A ramp in scalars.
struct Slope {
  std::uint32_t wholeFrames;
  float difference;
  float from;
  float frames;
  float reciprocal;  // of the frames, rounded
  float slope;       // difference × reciprocal

  MONITOR_GAIN_INLINE explicit Slope(const Ramp& ramp) noexcept
      : wholeFrames(gain::wholeFrames(ramp)),
        difference(ramp.to - ramp.from),
        from(ramp.from),
        frames(static_cast<float>(wholeFrames)),
        reciprocal(reciprocalOf(wholeFrames)),
        slope(difference * reciprocal) {}

  // Of a power of two the reciprocal is exact, and so is the product unless it is too small for a float.
  [[nodiscard]] MONITOR_GAIN_INLINE bool isExact() const noexcept {
    return std::has_single_bit(wholeFrames) && slope * frames == difference;
  }
};

template <class V, Position kPosition>
struct Line {
  using Floats = typename V::Floats;
  Floats difference;
  Floats from;
  Floats frames;
  Floats reciprocal;
  Floats reciprocalRest;
  Floats slope;

  MONITOR_GAIN_INLINE explicit Line(const Slope& scalars) noexcept
      : difference(V::broadcast(scalars.difference)),
        from(V::broadcast(scalars.from)),
        frames(V::broadcast(scalars.frames)),
        reciprocal(V::broadcast(scalars.reciprocal)),
        reciprocalRest(
            V::multiply(V::negatedMultiplyAdd(reciprocal, frames, V::broadcast(1.0F)), reciprocal)),
        slope(V::broadcast(scalars.slope)) {}

  [[nodiscard]] MONITOR_GAIN_INLINE Floats gains(const FrameNumbers<V, kPosition>& some) const noexcept {
    if constexpr (kPosition == Position::Slope) return V::multiplyAdd(slope, some.floats(), from);
    return V::multiplyAdd(difference, positions(some.floats()), from);
  }

 private:
  [[nodiscard]] MONITOR_GAIN_INLINE Floats positions(Floats numbers) const noexcept {
    if constexpr (kPosition == Position::Quotient) return V::divide(numbers, frames);
    return V::multiplyAdd(numbers, reciprocal, V::multiply(numbers, reciprocalRest));
  }
};

// The numbers of the frames from the one of index `frame` on, in this order.
template <class V, Position kPosition>
MONITOR_GAIN_INLINE FrameNumbers<V, kPosition> numbersFrom(std::size_t frame,
                                                           typename V::Integers order) noexcept {
  return FrameNumbers<V, kPosition>(V::add(V::broadcast(static_cast<std::int32_t>(frame)), order));
}

template <class V>
MONITOR_GAIN_INLINE void applyMono(const Sample* in, Sample* out, std::size_t count,
                                   const float* gains) noexcept {
  for (std::size_t sample = 0; sample < count; sample += V::kLanes)
    multiplyUpTo<V>(in + sample, out + sample, count - sample, V::loadGains(gains + sample));
}

template <class V>
MONITOR_GAIN_INLINE void applyStereo(const Sample* in, Sample* out, std::size_t count,
                                     const float* gains) noexcept {
  for (std::size_t sample = 0; sample < count; sample += 2 * V::kLanes) {
    const auto frames = V::loadGains(gains + sample / 2);
    multiplyUpTo<V>(in + sample, out + sample, count - sample, V::firstHalfTwice(frames));
    if (const std::size_t second = sample + V::kLanes; second < count)
      multiplyUpTo<V>(in + second, out + second, count - second, V::secondHalfTwice(frames));
  }
}

// Interleaved frames of any size. A frame is written in whole vectors that may reach into the frames behind
// it; those are written later, so that only the end of the buffer, `room` samples away, needs parts of
// vectors.
template <class V>
MONITOR_GAIN_INLINE void applyFrames(const Sample* in, Sample* out, std::size_t count, std::size_t room,
                                     std::size_t channels, const float* gains) noexcept {
  for (std::size_t begin = 0; begin < count; begin += channels, ++gains) {
    const auto gain = V::broadcast(*gains);
    const std::size_t end = channels < count - begin ? begin + channels : count;
    for (std::size_t sample = begin; sample < end; sample += V::kLanes)
      multiplyUpTo<V>(in + sample, out + sample, room - sample, gain);
  }
}

// Buffers of any shape and number, from `sample` on, where a frame begins. A function of its own, so that the
// loops that leave their rests to it have the registers for themselves.
template <class V, Position kPosition>
MONITOR_GAIN_VECTOR __attribute__((noinline)) void rampAny(Ramp ramp, Line<V, kPosition> line,
                                                           const Sample* const* in, Sample* const* out,
                                                           std::size_t buffers, std::size_t sample) noexcept {
  FrameNumbers<V, kPosition> numbers = numbersFrom<V, kPosition>(sample / ramp.channels, V::inOrder());
  alignas(64) float gains[kBlockFrames];
  for (; sample < ramp.count; sample += kBlockFrames * ramp.channels) {
    const std::size_t room = ramp.count - sample;
    const std::size_t count = room < kBlockFrames * ramp.channels ? room : kBlockFrames * ramp.channels;
    for (std::size_t index = 0; index < kBlockFrames && index * ramp.channels < count; index += V::kLanes) {
      V::storeGains(gains + index, line.gains(numbers));
      numbers.advance(V::kLanes);
    }
    for (std::size_t buffer = 0; buffer < buffers; ++buffer) {
      if (ramp.channels == 1) {
        applyMono<V>(in[buffer] + sample, out[buffer] + sample, count, gains);
      } else if (ramp.channels == 2) {
        applyStereo<V>(in[buffer] + sample, out[buffer] + sample, count, gains);
      } else {
        applyFrames<V>(in[buffer] + sample, out[buffer] + sample, count, room, ramp.channels, gains);
      }
    }
  }
}

// The order in which a vector holds frames of one channel or two. The one for two is such that unpacking puts
// each gain beside itself in the order of the samples.
template <class V, std::size_t kChannels>
MONITOR_GAIN_INLINE typename V::Integers frameOrder() noexcept {
  if constexpr (kChannels == 2) return V::inOrderToUnpack();
  return V::inOrder();
}

// All samples of a vector of frames.
template <class V, std::size_t kChannels, bool kFromEnd = false>
MONITOR_GAIN_INLINE void multiplyFrames(const Sample* in, Sample* out, typename V::Floats gains) noexcept {
  if constexpr (kChannels == 1) {
    multiply<V>(in, out, gains);
  } else if constexpr (kFromEnd) {
    multiply<V>(in + V::kLanes, out + V::kLanes, V::unpackHigh(gains));
    multiply<V>(in, out, V::unpackLow(gains));
  } else {
    multiply<V>(in, out, V::unpackLow(gains));
    multiply<V>(in + V::kLanes, out + V::kLanes, V::unpackHigh(gains));
  }
}

// How many vectors of frames a round of a walk takes. Two are two chains of arithmetic side by side; from the
// end one measured faster.
template <bool kFromEnd>
constexpr std::size_t vectorsOfRound() noexcept {
  return kFromEnd ? 1 : 2;
}

// The gains of the frames of a round, for `rounds` rounds of a walk over the frames from the one of index
// `frame` on.
template <class V, Position kPosition, bool kFromEnd>
class Walk {
 public:
  static constexpr std::size_t kVectors = vectorsOfRound<kFromEnd>();
  static constexpr std::size_t kFrames = kVectors * V::kLanes;
  struct Gains {
    typename V::Floats vector[kVectors];
  };

  MONITOR_GAIN_INLINE Walk(const Line<V, kPosition>& line, std::size_t frame, std::size_t rounds,
                           typename V::Integers order) noexcept
      : line_(line) {
    const std::size_t first = frame + (rounds > 0 ? stepOf<kFromEnd>(0, rounds) * kFrames : 0);
    for (std::size_t vector = 0; vector < kVectors; ++vector)
      numbers_[vector] = numbersFrom<V, kPosition>(first + vector * V::kLanes, order);
  }
  // Of the present round; the next one is then the present one.
  [[nodiscard]] MONITOR_GAIN_INLINE Gains next() noexcept {
    Gains gains;
    for (std::size_t vector = 0; vector < kVectors; ++vector) {
      gains.vector[vector] = line_.gains(numbers_[vector]);
      numbers_[vector].advance(kFromEnd ? -static_cast<float>(kFrames) : static_cast<float>(kFrames));
    }
    return gains;
  }

 private:
  const Line<V, kPosition>& line_;
  FrameNumbers<V, kPosition> numbers_[kVectors];
};

// A buffer of one channel or two. Returns how many samples are done: all but less than a round.
template <class V, Position kPosition, std::size_t kChannels, bool kFromEnd>
MONITOR_GAIN_INLINE std::size_t rampBuffer(const Line<V, kPosition>& line, const Sample* in, Sample* out,
                                           std::size_t count) noexcept {
  constexpr std::size_t kVector = kChannels * V::kLanes;
  constexpr std::size_t kRound = vectorsOfRound<kFromEnd>() * kVector;
  const auto order = frameOrder<V, kChannels>();
  std::size_t begin = 0;
  if (const std::size_t head = samplesToNextLine(out);
      head != 0 && head % kChannels == 0 && count >= 2 * kVector) {
    FrameNumbers<V, kPosition> first(order);
    for (std::size_t part = 0; part < kLineSamples; part += kVector) {
      multiplyFrames<V, kChannels>(in + part, out + part, line.gains(first));
      first.advance(V::kLanes);
    }
    begin = head;
  }
  const std::size_t rounds = (count - begin) / kRound;
  Walk<V, kPosition, kFromEnd> walk(line, begin / kChannels, rounds, order);
  for (std::size_t round = 0; round < rounds; ++round) {
    const auto gains = walk.next();
    const std::size_t sample = begin + stepOf<kFromEnd>(round, rounds) * kRound;
    const Sample* from = kept(in + sample);
    Sample* to = kept(out + sample);
    for (std::size_t vector = 0; vector < walk.kVectors; ++vector) {
      const std::size_t place = vector * kVector;
      multiplyFrames<V, kChannels, kFromEnd>(from + place, to + place, gains.vector[vector]);
    }
  }
  return begin + rounds * kRound;
}

// Two buffers of one channel. Returns how many samples of each are done.
template <class V, Position kPosition, bool kFromEnd>
MONITOR_GAIN_INLINE std::size_t rampTwoMono(const Line<V, kPosition>& line, const Sample* const* in,
                                            Sample* const* out, std::size_t count) noexcept {
  constexpr std::size_t kRound = vectorsOfRound<kFromEnd>() * V::kLanes;
  const Sample* leftIn = in[0];
  const Sample* rightIn = in[1];
  Sample* leftOut = out[0];
  Sample* rightOut = out[1];
  std::size_t begin = 0;
  if (const std::size_t head = samplesToNextLine(leftOut);
      head != 0 && head == samplesToNextLine(rightOut) && count >= kLineSamples) {
    FrameNumbers<V, kPosition> first(V::inOrder());
    for (std::size_t part = 0; part < kLineSamples; part += V::kLanes) {
      const auto gains = line.gains(first);
      first.advance(V::kLanes);
      multiply<V>(leftIn + part, leftOut + part, gains);
      multiply<V>(rightIn + part, rightOut + part, gains);
    }
    begin = head;
  }
  const std::size_t rounds = (count - begin) / kRound;
  Walk<V, kPosition, kFromEnd> walk(line, begin, rounds, V::inOrder());
  for (std::size_t round = 0; round < rounds; ++round) {
    const auto gains = walk.next();
    const std::size_t sample = begin + stepOf<kFromEnd>(round, rounds) * kRound;
    const Sample* fromLeft = kept(leftIn + sample);
    const Sample* fromRight = kept(rightIn + sample);
    Sample* toLeft = kept(leftOut + sample);
    Sample* toRight = kept(rightOut + sample);
    for (std::size_t vector = 0; vector < walk.kVectors; ++vector) {
      const std::size_t place = vector * V::kLanes;
      multiply<V>(fromLeft + place, toLeft + place, gains.vector[vector]);
      multiply<V>(fromRight + place, toRight + place, gains.vector[vector]);
    }
  }
  return begin + rounds * kRound;
}

// Samples of all buffers together above which they take more than a second-level cache often has for them.
constexpr std::size_t kFarSamples = std::size_t{32} * 1024;

// Whether buffers of one channel are better taken one after the other, though the gains are then computed for
// each. That is cheap with vectors of a line, and far memory is read faster in one stream than in two.
template <class V>
MONITOR_GAIN_INLINE bool goOneByOne(std::size_t count, std::size_t buffers) noexcept {
  return buffers == 1 || (V::kLanes == kLineSamples && count * buffers > kFarSamples);
}

// Its line is made anew: passed on by the loop before, it would have to lie in memory there.
template <class V, Position kPosition>
MONITOR_GAIN_INLINE void rampRest(const Ramp& ramp, const Slope& slope, const Sample* const* in,
                                  Sample* const* out, std::size_t buffers, std::size_t done) noexcept {
  constexpr Position kRest = kPosition == Position::Slope ? Position::Reciprocal : kPosition;
  if (done < ramp.count) rampAny<V, kRest>(ramp, Line<V, kRest>(slope), in, out, buffers, done);
}

template <class V, Position kPosition, bool kFromEnd>
MONITOR_GAIN_INLINE void rampOf(const Ramp& ramp, const Slope& slope, const Sample* const* in,
                                Sample* const* out, std::size_t buffers) noexcept {
  using Gains = Line<V, kPosition>;
  if (ramp.channels == 2 && buffers == 1) {
    const std::size_t done = rampBuffer<V, kPosition, 2, kFromEnd>(Gains(slope), in[0], out[0], ramp.count);
    rampRest<V, kPosition>(ramp, slope, in, out, 1, done);
  } else if (ramp.channels == 1 && goOneByOne<V>(ramp.count, buffers)) {
    for (std::size_t step = 0; step < buffers; ++step) {
      const std::size_t buffer = stepOf<kFromEnd>(step, buffers);
      const std::size_t done =
          rampBuffer<V, kPosition, 1, kFromEnd>(Gains(slope), in[buffer], out[buffer], ramp.count);
      rampRest<V, kPosition>(ramp, slope, in + buffer, out + buffer, 1, done);
    }
  } else if (ramp.channels == 1 && buffers == 2) {
    const std::size_t done = rampTwoMono<V, kPosition, kFromEnd>(Gains(slope), in, out, ramp.count);
    rampRest<V, kPosition>(ramp, slope, in, out, 2, done);
  } else {
    rampRest<V, kPosition>(ramp, slope, in, out, buffers, 0);
  }
}

template <class V, Position kPosition>
MONITOR_GAIN_INLINE void rampEitherWay(const Ramp& ramp, const Slope& slope, const Sample* const* in,
                                       Sample* const* out, std::size_t buffers) noexcept {
  if (ramp.fromEnd) return rampOf<V, kPosition, true>(ramp, slope, in, out, buffers);
  rampOf<V, kPosition, false>(ramp, slope, in, out, buffers);
}

template <class V>
MONITOR_GAIN_INLINE void rampBuffers(const Ramp& ramp, const Sample* const* in, Sample* const* out,
                                     std::size_t buffers) noexcept {
  const Slope slope(ramp);
  if (slope.wholeFrames > kShortRampFrames)
    return rampOf<V, Position::Quotient, false>(ramp, slope, in, out, buffers);
  if (slope.isExact()) return rampEitherWay<V, Position::Slope>(ramp, slope, in, out, buffers);
  rampEitherWay<V, Position::Reciprocal>(ramp, slope, in, out, buffers);
}

}  // namespace
}  // namespace monitor::gain
