// SPDX-License-Identifier: MIT
#pragma once

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

// Samples of all buffers together that come from the second-level cache and are gone again before the next
// call; inputs and outputs take eight bytes for each. Up to the first count they stay in a first-level cache
// of 48 KB; above the second, and with vectors of less than a line, nothing was gained.
constexpr std::size_t kCachedSamples = 6144;
constexpr std::size_t kPacedSamples = std::size_t{32} * 1024;

template <class V>
MONITOR_GAIN_INLINE bool isPaced(std::size_t samples) noexcept {
  return V::kLanes == kLineSamples && samples > kCachedSamples && samples <= kPacedSamples;
}

// `sample` advanced by the kStep samples of a round of four cache lines; if paced, in a chain of dependent
// additions. When lines come from the second-level cache, loads that run far ahead of them get into each
// other's way: on AMD's family 26, where a copy takes 2.0 cycles for each line, a loop takes 2.6 at full
// speed, and 2.3 when a round may begin every nine cycles. Eight or ten do not help. Elsewhere this was not
// measured; where a line takes longer anyway it costs nothing.
template <std::size_t kStep, bool kPaced>
MONITOR_GAIN_INLINE std::size_t advanced(std::size_t sample) noexcept {
  if constexpr (!kPaced) return sample + kStep;
  constexpr std::size_t kAdditions = 9;
  constexpr std::size_t kEach = kStep / kAdditions;
  for (std::size_t addition = 1; addition < kAdditions; ++addition) {
    sample += kEach;
    asm("" : "+r"(sample));  // or the compiler would make them one
  }
  return sample + (kStep - (kAdditions - 1) * kEach);
}

// An address that stays in one register: where the compiler adds it up anew for each access, the loads of a
// round no longer leave together, and half of what the pace gains is lost.
template <class At>
MONITOR_GAIN_INLINE At kept(At address) noexcept {
  asm("" : "+r"(address));
  return address;
}

// A vector's worth; if paced, the compiler moves no access of what follows before its own.
template <class V, bool kPaced = false>
MONITOR_GAIN_INLINE void multiply(const Sample* in, Sample* out, typename V::Floats gains) noexcept {
  V::store(out, V::multiply(V::load(in), gains));
  if constexpr (kPaced) asm("" : : : "memory");
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

template <class V, bool kPaced>
MONITOR_GAIN_INLINE void steadySamples(const Sample* in, Sample* out, std::size_t count,
                                       float gain) noexcept {
  const auto gains = V::broadcast(gain);
  std::size_t sample = 0;
  if (const std::size_t head = samplesToNextLine(out); head != 0 && count >= kLineSamples) {
    // Vectors that straddle cache lines cost double: one line is written as it lies, and from the next
    // boundary on, some samples for the second time, everything is aligned.
    multiplyLine<V>(in, out, gains);
    sample = head;
  }
  // Four lines at a time but each before the next: beyond the first-level cache four loads and then four
  // stores cost up to 40 % more.
  while (sample + 4 * kLineSamples <= count) {
    const Sample* from = kept(in + sample);
    Sample* to = kept(out + sample);
    multiplyLine<V>(from, to, gains);
    multiplyLine<V>(from + kLineSamples, to + kLineSamples, gains);
    multiplyLine<V>(from + 2 * kLineSamples, to + 2 * kLineSamples, gains);
    multiplyLine<V>(from + 3 * kLineSamples, to + 3 * kLineSamples, gains);
    sample = advanced<4 * kLineSamples, kPaced>(sample);
  }
  for (; sample + V::kLanes <= count; sample += V::kLanes) multiply<V>(in + sample, out + sample, gains);
  if (sample < count) V::multiplyFirst(in + sample, out + sample, count - sample, gains);
}

// Buffers of 4096 stereo frames and their outputs take 64 KB and just overflow a first-level cache of 48 KB.
// Line by line of four quarters in turn they took less time than from end to end on AMD's family 26, a tenth
// to a quarter in one buffer and a twentieth to an eighth in two, at each of eleven distances of the output
// from the input. With two or eight parts, or with quarters that are not whole pages, it depended on the
// distance.
constexpr std::size_t kQuarteredSamples = 8192;
constexpr std::size_t kQuarters = 4;

[[maybe_unused]] MONITOR_GAIN_INLINE bool isQuartered(const Sample* out, std::size_t count,
                                                      std::size_t total) noexcept {
  constexpr std::size_t kPageSamples = 1024;
  constexpr std::size_t kLineBytes = kLineSamples * sizeof(float);
  return total == kQuarteredSamples && count % (kQuarters * kPageSamples) == 0 &&
         reinterpret_cast<std::uintptr_t>(out) % kLineBytes == 0;
}

template <class V>
MONITOR_GAIN_INLINE void steadyQuarters(const Sample* in, Sample* out, std::size_t count,
                                        float gain) noexcept {
  const auto gains = V::broadcast(gain);
  const std::size_t quarter = count / kQuarters;
  for (std::size_t sample = 0; sample < quarter; sample += kLineSamples) {
    multiplyLine<V>(in + sample, out + sample, gains);
    multiplyLine<V>(in + sample + quarter, out + sample + quarter, gains);
    multiplyLine<V>(in + sample + 2 * quarter, out + sample + 2 * quarter, gains);
    multiplyLine<V>(in + sample + 3 * quarter, out + sample + 3 * quarter, gains);
  }
}

template <class V>
MONITOR_GAIN_INLINE void steadyBuffer(const Steady& steady, const Sample* in, Sample* out) noexcept {
  if (isQuartered(out, steady.count, steady.total))
    return steadyQuarters<V>(in, out, steady.count, steady.gain);
  if (isPaced<V>(steady.total)) return steadySamples<V, true>(in, out, steady.count, steady.gain);
  steadySamples<V, false>(in, out, steady.count, steady.gain);
}

// The numbers of a vector of frames, which need not be in order. Counted as floats while those are exact,
// which saves a conversion per vector.
template <class V, bool kLong>
struct FrameNumbers {
  typename V::Floats numbers;

  MONITOR_GAIN_INLINE explicit FrameNumbers(typename V::Integers first) noexcept
      : numbers(V::toFloats(first)) {}
  MONITOR_GAIN_INLINE void advance(float frames) noexcept { numbers = V::add(numbers, V::broadcast(frames)); }
  [[nodiscard]] MONITOR_GAIN_INLINE typename V::Floats floats() const noexcept { return numbers; }
};

template <class V>
struct FrameNumbers<V, true> {
  typename V::Integers numbers;  // at most 2^30 + 32: a buffer's size is a 32-bit count of bytes

  MONITOR_GAIN_INLINE explicit FrameNumbers(typename V::Integers first) noexcept : numbers(first) {}
  MONITOR_GAIN_INLINE void advance(float frames) noexcept {
    numbers = V::add(numbers, V::broadcast(static_cast<std::int32_t>(frames)));
  }
  [[nodiscard]] MONITOR_GAIN_INLINE typename V::Floats floats() const noexcept {
    return V::toFloats(numbers);
  }
};

template <class V, bool kLong>
struct Line {
  using Floats = typename V::Floats;
  Floats difference;
  Floats from;
  Floats frames;
  Floats reciprocal;
  Floats reciprocalRest;

  MONITOR_GAIN_INLINE Line(Ramp ramp, std::uint32_t wholeFrames) noexcept
      : difference(V::broadcast(ramp.to - ramp.from)),
        from(V::broadcast(ramp.from)),
        frames(V::broadcast(static_cast<float>(wholeFrames))),
        reciprocal(V::divide(V::broadcast(1.0F), frames)),
        reciprocalRest(
            V::multiply(V::negatedMultiplyAdd(reciprocal, frames, V::broadcast(1.0F)), reciprocal)) {}

  [[nodiscard]] MONITOR_GAIN_INLINE Floats gains(const FrameNumbers<V, kLong>& some) const noexcept {
    return V::multiplyAdd(difference, positions(some.floats()), from);
  }

 private:
  [[nodiscard]] MONITOR_GAIN_INLINE Floats positions(Floats numbers) const noexcept {
    if constexpr (kLong) return V::divide(numbers, frames);
    return V::multiplyAdd(numbers, reciprocal, V::multiply(numbers, reciprocalRest));
  }
};

// The numbers of the frames from the one of index `frame` on, in this order.
template <class V, bool kLong>
MONITOR_GAIN_INLINE FrameNumbers<V, kLong> numbersFrom(std::size_t frame,
                                                       typename V::Integers order) noexcept {
  return FrameNumbers<V, kLong>(V::add(V::broadcast(static_cast<std::int32_t>(frame)), order));
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
template <class V, bool kLong>
MONITOR_GAIN_VECTOR __attribute__((noinline)) void rampAny(Ramp ramp, Line<V, kLong> line,
                                                           const Sample* const* in, Sample* const* out,
                                                           std::size_t buffers, std::size_t sample) noexcept {
  FrameNumbers<V, kLong> numbers = numbersFrom<V, kLong>(sample / ramp.channels, V::inOrder());
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
template <class V, std::size_t kChannels, bool kPaced = false>
MONITOR_GAIN_INLINE void multiplyFrames(const Sample* in, Sample* out, typename V::Floats gains) noexcept {
  if constexpr (kChannels == 2) {
    multiply<V, kPaced>(in, out, V::unpackLow(gains));
    multiply<V, kPaced>(in + V::kLanes, out + V::kLanes, V::unpackHigh(gains));
  } else {
    multiply<V, kPaced>(in, out, gains);
  }
}

// A buffer of one channel or two. Returns how many samples are done: all but less than a round.
template <class V, bool kLong, std::size_t kChannels, bool kPaced>
MONITOR_GAIN_INLINE std::size_t rampBuffer(const Line<V, kLong>& line, const Sample* in, Sample* out,
                                           std::size_t count) noexcept {
  constexpr std::size_t kVector = kChannels * V::kLanes;
  constexpr std::size_t kRound = 2 * kVector;
  const auto order = frameOrder<V, kChannels>();
  std::size_t sample = 0;
  if (const std::size_t head = samplesToNextLine(out);
      head != 0 && head % kChannels == 0 && count >= kRound) {
    FrameNumbers<V, kLong> first(order);
    for (std::size_t part = 0; part < kLineSamples; part += kVector) {
      multiplyFrames<V, kChannels>(in + part, out + part, line.gains(first));
      first.advance(V::kLanes);
    }
    sample = head;
  }
  FrameNumbers<V, kLong> even = numbersFrom<V, kLong>(sample / kChannels, order);
  FrameNumbers<V, kLong> odd = even;
  odd.advance(V::kLanes);
  while (sample + kRound <= count) {  // two chains of arithmetic side by side
    if constexpr (kPaced) {           // counted from the paced number, so that the gains keep the pace too
      even = numbersFrom<V, kLong>(sample / kChannels, order);
      odd = even;
      odd.advance(V::kLanes);
    }
    const auto evenGains = line.gains(even);
    const auto oddGains = line.gains(odd);
    even.advance(2 * V::kLanes);
    odd.advance(2 * V::kLanes);
    const Sample* from = kept(in + sample);
    Sample* to = kept(out + sample);
    multiplyFrames<V, kChannels, kPaced>(from, to, evenGains);
    multiplyFrames<V, kChannels, kPaced>(from + kVector, to + kVector, oddGains);
    sample = advanced<kRound, kPaced>(sample);
  }
  return sample;
}

// A whole buffer of two channels, or one of two buffers of one channel, in four quarters.
template <class V, std::size_t kChannels>
MONITOR_GAIN_INLINE void rampQuarters(const Line<V, false>& line, const Sample* in, Sample* out) noexcept {
  constexpr std::size_t kQuarter = kQuarteredSamples / (2 / kChannels) / kQuarters;
  constexpr std::size_t kFrames = kQuarter / kChannels;
  const auto order = frameOrder<V, kChannels>();
  FrameNumbers<V, false> numbers[kQuarters] = {
      numbersFrom<V, false>(0, order), numbersFrom<V, false>(kFrames, order),
      numbersFrom<V, false>(2 * kFrames, order), numbersFrom<V, false>(3 * kFrames, order)};
  for (std::size_t sample = 0; sample < kQuarter; sample += kChannels * V::kLanes) {
    typename V::Floats gains[kQuarters];
    for (std::size_t part = 0; part < kQuarters; ++part) {
      gains[part] = line.gains(numbers[part]);
      numbers[part].advance(V::kLanes);
      const std::size_t at = sample + part * kQuarter;
      multiply<V>(in + at, out + at, kChannels == 2 ? V::unpackLow(gains[part]) : gains[part]);
    }
    for (std::size_t part = 0; kChannels == 2 && part < kQuarters; ++part) {
      const std::size_t at = sample + part * kQuarter + V::kLanes;
      multiply<V>(in + at, out + at, V::unpackHigh(gains[part]));
    }
  }
}

// Two buffers of one channel. Returns how many samples of each are done.
template <class V, bool kLong, bool kPaced>
MONITOR_GAIN_INLINE std::size_t rampTwoMono(const Line<V, kLong>& line, const Sample* const* in,
                                            Sample* const* out, std::size_t count) noexcept {
  const Sample* leftIn = in[0];
  const Sample* rightIn = in[1];
  Sample* leftOut = out[0];
  Sample* rightOut = out[1];
  std::size_t sample = 0;
  if (const std::size_t head = samplesToNextLine(leftOut);
      head != 0 && head == samplesToNextLine(rightOut) && count >= kLineSamples) {
    FrameNumbers<V, kLong> first(V::inOrder());
    for (std::size_t part = 0; part < kLineSamples; part += V::kLanes) {
      const auto gains = line.gains(first);
      first.advance(V::kLanes);
      multiply<V>(leftIn + part, leftOut + part, gains);
      multiply<V>(rightIn + part, rightOut + part, gains);
    }
    sample = head;
  }
  FrameNumbers<V, kLong> even = numbersFrom<V, kLong>(sample, V::inOrder());
  FrameNumbers<V, kLong> odd = even;
  odd.advance(V::kLanes);
  while (sample + 2 * V::kLanes <= count) {
    const auto evenGains = line.gains(even);
    const auto oddGains = line.gains(odd);
    even.advance(2 * V::kLanes);
    odd.advance(2 * V::kLanes);
    const Sample* fromLeft = kept(leftIn + sample);
    const Sample* fromRight = kept(rightIn + sample);
    Sample* toLeft = kept(leftOut + sample);
    Sample* toRight = kept(rightOut + sample);
    multiply<V, kPaced>(fromLeft, toLeft, evenGains);
    multiply<V, kPaced>(fromRight, toRight, evenGains);
    multiply<V, kPaced>(fromLeft + V::kLanes, toLeft + V::kLanes, oddGains);
    multiply<V, kPaced>(fromRight + V::kLanes, toRight + V::kLanes, oddGains);
    sample = advanced<2 * V::kLanes, kPaced>(sample);
  }
  return sample;
}

// Whether buffers of one channel are better taken one after the other, though the gains are then computed for
// each. That is cheap with vectors of a line, and far memory is read faster in one stream than in two.
template <class V>
MONITOR_GAIN_INLINE bool goOneByOne(std::size_t count, std::size_t buffers) noexcept {
  return buffers == 1 || (V::kLanes == kLineSamples && count * buffers > kPacedSamples);
}

// Its line is made anew: passed on by the loop before, it would have to lie in memory there.
template <class V, bool kLong>
MONITOR_GAIN_INLINE void rampRest(Ramp ramp, std::uint32_t wholeFrames, const Sample* const* in,
                                  Sample* const* out, std::size_t buffers, std::size_t done) noexcept {
  if (done < ramp.count) rampAny<V, kLong>(ramp, {ramp, wholeFrames}, in, out, buffers, done);
}

template <class V, bool kLong, bool kPaced>
MONITOR_GAIN_INLINE void rampOf(Ramp ramp, std::uint32_t wholeFrames, const Sample* const* in,
                                Sample* const* out, std::size_t buffers) noexcept {
  if (ramp.channels == 2 && buffers == 1) {
    const std::size_t done = rampBuffer<V, kLong, 2, kPaced>({ramp, wholeFrames}, in[0], out[0], ramp.count);
    rampRest<V, kLong>(ramp, wholeFrames, in, out, 1, done);
  } else if (ramp.channels == 1 && goOneByOne<V>(ramp.count, buffers)) {
    for (std::size_t buffer = 0; buffer < buffers; ++buffer) {
      const std::size_t done =
          rampBuffer<V, kLong, 1, false>({ramp, wholeFrames}, in[buffer], out[buffer], ramp.count);
      rampRest<V, kLong>(ramp, wholeFrames, in + buffer, out + buffer, 1, done);
    }
  } else if (ramp.channels == 1 && buffers == 2) {
    const std::size_t done = rampTwoMono<V, kLong, kPaced>({ramp, wholeFrames}, in, out, ramp.count);
    rampRest<V, kLong>(ramp, wholeFrames, in, out, 2, done);
  } else {
    rampRest<V, kLong>(ramp, wholeFrames, in, out, buffers, 0);
  }
}

// Whether the buffers are of a shape for quarters, and then they are done. Only with vectors of a line: with
// less the arithmetic takes longer than the lines.
template <class V>
MONITOR_GAIN_INLINE bool rampInQuarters(Ramp ramp, std::uint32_t frames, const Sample* const* in,
                                        Sample* const* out, std::size_t buffers) noexcept {
  if (V::kLanes != kLineSamples || ramp.channels * buffers != 2) return false;
  for (std::size_t buffer = 0; buffer < buffers; ++buffer) {
    if (!isQuartered(out[buffer], ramp.count, ramp.count * buffers)) return false;
  }
  if (buffers == 1) {
    rampQuarters<V, 2>({ramp, frames}, in[0], out[0]);
  } else {
    rampQuarters<V, 1>({ramp, frames}, in[0], out[0]);
    rampQuarters<V, 1>({ramp, frames}, in[1], out[1]);
  }
  return true;
}

template <class V>
MONITOR_GAIN_INLINE void rampBuffers(const Ramp& ramp, const Sample* const* in, Sample* const* out,
                                     std::size_t buffers) noexcept {
  // In 32 bits, which hold every count of samples: the wider division takes as long as a dozen vectors.
  const std::uint32_t frames =
      static_cast<std::uint32_t>(ramp.count) / static_cast<std::uint32_t>(ramp.channels);
  if (rampInQuarters<V>(ramp, frames, in, out, buffers)) return;
  if (frames > kShortRampFrames) return rampOf<V, true, false>(ramp, frames, in, out, buffers);
  if (isPaced<V>(ramp.count * buffers)) return rampOf<V, false, true>(ramp, frames, in, out, buffers);
  rampOf<V, false, false>(ramp, frames, in, out, buffers);
}

}  // namespace
}  // namespace monitor::gain
