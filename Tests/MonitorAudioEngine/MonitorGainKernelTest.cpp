// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/MonitorGainKernel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "MonitorAudioEngine/ExactFusedMultiplyAdd.h"
#include "MonitorAudioEngine/MonitorGain.h"
#include "Tests/MonitorAudioEngine/GainBuffers.h"

namespace monitor::gain {
namespace {

bool longRun() {
  return std::getenv("VESK_LONG") != nullptr;
}

std::vector<const Kernel*> findKernels() {
  std::vector<const Kernel*> kernels{&kPortableKernel};
#if defined(__x86_64__)
  kernels.push_back(&kSse2Kernel);
  const CpuFeatures features = cpuFeatures();
  if (features.avx2 && features.fma) {
    kernels.push_back(&kAvx2Kernel);
  } else {
    std::cout << "This processor lacks AVX2 or FMA: the kernel avx2 is not tested.\n";
  }
  if (features.avx512f) {
    kernels.push_back(&kAvx512Kernel);
  } else {
    std::cout << "This processor lacks AVX-512: the kernel avx512 is not tested.\n";
  }
#endif
  return kernels;
}

const std::vector<const Kernel*>& kernelsOfThisMachine() {
  static const std::vector<const Kernel*> kernels = findKernels();
  return kernels;
}

struct Shape {
  std::size_t count = 0;
  std::size_t channels = 1;
  float from = 1.0F;
  float to = 1.0F;
};

std::ostream& operator<<(std::ostream& out, const Shape& shape) {
  return out << shape.count << " samples, " << shape.channels << " channels, " << std::hexfloat << shape.from
             << " to " << shape.to << std::defaultfloat;
}

// The formula word for word, with the C library's own fused multiply-add.
float formula(const Shape& shape, std::size_t sample, float input) {
  const auto frames = static_cast<float>(shape.count / shape.channels);
  const float position = static_cast<float>(sample / shape.channels + 1) / frames;
  return input * std::fma(shape.to - shape.from, position, shape.from);
}

bool sameBits(float one, float other) {
  return std::bit_cast<std::uint32_t>(one) == std::bit_cast<std::uint32_t>(other);
}

// Samples of a kernel `offset` bytes behind the begin of a cache line, with guards on both sides.
class Misplaced {
 public:
  Misplaced(std::size_t count, std::size_t offset) : bytes_(count * sizeof(float) + 4 * kGuard, kMark) {
    const auto address = reinterpret_cast<std::uintptr_t>(bytes_.data());
    begin_ = kGuard + (kGuard - address % kGuard) % kGuard + offset % kGuard;
  }

  [[nodiscard]] Sample* data() { return reinterpret_cast<Sample*>(bytes_.data() + begin_); }
  [[nodiscard]] bool guardsAreWhole(std::size_t count) const {
    const std::size_t end = begin_ + count * sizeof(float);
    for (std::size_t byte = 0; byte < bytes_.size(); ++byte) {
      if ((byte < begin_ || byte >= end) && bytes_[byte] != kMark) return false;
    }
    return true;
  }

 private:
  static constexpr std::size_t kGuard = 64;
  static constexpr unsigned char kMark = 0xA5;
  std::vector<unsigned char> bytes_;
  std::size_t begin_ = 0;
};

// Where the buffers of a call begin. From kAlike on all outputs have the same place in a cache line, as those
// of an audio server have; below they have not.
constexpr std::size_t kAlike = 64;

std::size_t outputPlace(std::size_t offset, std::size_t buffer) {
  return offset >= kAlike ? offset - kAlike : offset * 3 + buffer * 4;
}

class MonitorGainKernelTest : public testing::TestWithParam<const Kernel*> {
 protected:
  static const Kernel& kernel() { return *GetParam(); }

  // Renders a buffer and compares every sample; stops at the first difference.
  static void expectFormula(const Shape& shape, const std::vector<float>& inputs, std::size_t offset = 0) {
    expectFormulaTogether(shape, {inputs}, offset);
  }

  // The same for buffers rendered together, each at a place of its own.
  static void expectFormulaTogether(const Shape& shape, const std::vector<std::vector<float>>& inputs,
                                    std::size_t offset) {
    expectFormulaOneWay(shape, inputs, offset, false);
    if (!HasFatalFailure()) expectFormulaOneWay(shape, inputs, offset, true);
  }

  static void expectFormulaOneWay(const Shape& shape, const std::vector<std::vector<float>>& inputs,
                                  std::size_t offset, bool fromEnd) {
    std::vector<Misplaced> ins;
    std::vector<Misplaced> outs;
    const Sample* in[4] = {};
    Sample* out[4] = {};
    for (std::size_t buffer = 0; buffer < inputs.size(); ++buffer) {
      ins.emplace_back(shape.count, offset + buffer);
      outs.emplace_back(shape.count, outputPlace(offset, buffer));
      std::memcpy(ins.back().data(), inputs[buffer].data(), shape.count * sizeof(float));
      in[buffer] = ins.back().data();
      out[buffer] = outs.back().data();
    }
    kernel().ramp({shape.count, shape.channels, shape.from, shape.to, fromEnd}, in, out, inputs.size());
    for (std::size_t buffer = 0; buffer < inputs.size(); ++buffer) {
      for (std::size_t sample = 0; sample < shape.count; ++sample) {
        const float expected = formula(shape, sample, inputs[buffer][sample]);
        const float actual = out[buffer][sample];
        ASSERT_TRUE(sameBits(actual, expected))
            << shape << (fromEnd ? ", from the end" : "") << ", buffer " << buffer << ", sample " << sample
            << ": " << std::hexfloat << actual << " instead of " << expected;
      }
      ASSERT_TRUE(outs[buffer].guardsAreWhole(shape.count)) << shape << ", buffer " << buffer;
    }
  }

  static void expectGains(const Shape& shape, std::size_t offset = 0) {
    expectFormula(shape, std::vector<float>(shape.count, 1.0F), offset);
  }

  // One buffer at a steady gain.
  static void expectSteady(const std::vector<float>& inputs, float gain, std::size_t offset) {
    const std::size_t count = inputs.size();
    for (const bool fromEnd : {false, true}) {
      Misplaced in(count, offset);
      Misplaced out(count, outputPlace(offset, 0));
      std::copy(inputs.begin(), inputs.end(), in.data());
      kernel().steady({count, gain, fromEnd}, in.data(), out.data());
      for (std::size_t sample = 0; sample < count; ++sample) {
        const float expected = inputs[sample] * gain;
        const float actual = out.data()[sample];
        ASSERT_TRUE(sameBits(actual, expected))
            << count << " samples" << (fromEnd ? " from the end" : "") << ", sample " << sample;
      }
      ASSERT_TRUE(out.guardsAreWhole(count)) << count << " samples";
    }
  }
};

// Gains as they come: round ones, any, and the ones that are hard to round.
class Gains {
 public:
  float next() {
    switch (random_() % 6) {
      case 0:
        return static_cast<float>(random_() % 101) / 100.0F;
      case 1:
        return std::ldexp(fraction(), -static_cast<int>(random_() % 148));
      case 2:
        return std::nextafter(static_cast<float>(random_() % 9) / 8.0F, random_() % 2 == 0 ? 0.0F : 0.99F);
      case 3:
        return std::bit_cast<float>(static_cast<std::uint32_t>(random_() % 0x00900000U));  // around subnormal
      default:
        return fraction();
    }
  }
  std::size_t below(std::size_t limit) { return static_cast<std::size_t>(random_()) % limit; }
  float anyBits() { return std::bit_cast<float>(static_cast<std::uint32_t>(random_())); }

 private:
  float fraction() { return static_cast<float>(random_() >> 40U) * 0x1p-24F; }
  std::mt19937_64 random_{20'261'120};
};

TEST_P(MonitorGainKernelTest, EveryLengthAndChannelCountAndPlaceGivesTheFormula) {
  Gains random;
  for (std::size_t channels = 1; channels <= 19; ++channels) {
    for (std::size_t count = channels; count <= 200; count += 1 + random.below(3)) {
      expectGains({count, channels, random.next(), random.next()}, random.below(2 * kAlike));
      if (HasFatalFailure()) return;
    }
  }
}

TEST_P(MonitorGainKernelTest, MillionsOfRandomGainsGiveTheFormula) {
  Gains random;
  const std::size_t samples = longRun() ? 20'000'000 : 1'000'000;
  for (std::size_t done = 0; done < samples;) {
    const std::size_t channels = 1 + random.below(random.below(8) == 0 ? 40 : 3);
    const std::size_t count = channels + random.below(1500);
    expectGains({count, channels, random.next(), random.next()}, random.below(2 * kAlike));
    if (HasFatalFailure()) return;
    done += count;
  }
}

TEST_P(MonitorGainKernelTest, SamplesOfAnyBitsGiveTheFormula) {
  Gains random;
  std::vector<float> inputs(2048);
  for (int round = 0; round < 150; ++round) {
    for (float& input : inputs) input = random.below(20) == 0 ? 0.0F : random.anyBits();
    expectFormula({inputs.size() - random.below(40), 1 + random.below(7), random.next(), random.next()},
                  inputs, random.below(2 * kAlike));
    if (HasFatalFailure()) return;
  }
}

TEST_P(MonitorGainKernelTest, BuffersRenderedTogetherEachGiveTheFormula) {
  Gains random;
  for (int round = 0; round < 400; ++round) {
    const std::size_t channels = 1 + random.below(4);
    const std::size_t count = channels + random.below(400);
    std::vector<std::vector<float>> inputs(1 + random.below(4), std::vector<float>(count));
    for (std::vector<float>& input : inputs) {
      for (float& sample : input) sample = random.next() - 0.5F;
    }
    expectFormulaTogether({count, channels, random.next(), random.next()}, inputs, random.below(2 * kAlike));
    if (HasFatalFailure()) return;
  }
}

TEST_P(MonitorGainKernelTest, SteadyGainGivesTheProductForSamplesOfAnyBits) {
  Gains random;
  for (std::size_t count = 0; count <= 300; ++count) {
    std::vector<float> inputs(count);
    for (float& input : inputs) input = random.anyBits();
    const float gain = random.next();
    expectSteady(inputs, gain, count % (2 * kAlike));
    if (HasFatalFailure()) return;
  }
}

// On both sides of every size at which a kernel may walk through its buffers in another way, at every place
// in a cache line, also between samples.
TEST_P(MonitorGainKernelTest, BuffersOfEveryLevelOfCacheGiveTheFormulaAtEveryPlace) {
  Gains random;
  std::size_t offset = 0;
  for (const std::size_t size : {2048U, 4096U, 6144U, 8192U, 16'384U, 32'768U, 65'536U}) {
    for (const std::size_t total : {size - 33, size - 2, size - 1, size, size + 1, size + 2, size + 31}) {
      for (int place = 0; place < 3; ++place) {
        offset = (offset + 23) % (2 * kAlike);
        std::vector<float> inputs(total);
        for (float& input : inputs) input = random.next() - 0.5F;
        expectSteady(inputs, random.next(), offset);
        expectFormula({total, 1 + random.below(3), random.next(), random.next()}, inputs, offset);
        expectFormula({total, 2, random.next(), random.next()}, inputs, offset);
        inputs.resize(total / 2);
        expectFormulaTogether({total / 2, 1, random.next(), random.next()}, {inputs, inputs}, offset);
        if (HasFatalFailure()) return;
      }
    }
  }
}

// Where the count of frames is a power of two, a ramp may count in steps of one size, unless they are too
// small for a float.
TEST_P(MonitorGainKernelTest, PowersOfTwoGiveTheFormulaForDifferencesOfEverySize) {
  Gains random;
  const float least = std::numeric_limits<float>::denorm_min();
  for (std::size_t frames = 1; frames <= 8192; frames *= 2) {
    for (const float to :
         {1.0F, 0.3F, 0x1.fffffep-1F, 0x1p-120F, 0x1.8p-126F, 0x1.000002p-113F, 5 * least, least}) {
      for (const float from : {0.0F, 0.7F, 0x1p-126F, random.next()}) {
        expectGains({frames * 2, 2, from, to}, random.below(2 * kAlike));
        expectGains({frames * 2 + 1, 2, to, from}, random.below(2 * kAlike));
        expectGains({frames, 1, to, from}, random.below(2 * kAlike));
        if (HasFatalFailure()) return;
      }
    }
  }
}

// Plain doubles round this one twice, to the wrong side; a handful of random vectors would never meet it.
TEST_P(MonitorGainKernelTest, GainThatDoublesRoundWronglyGivesTheFormula) {
  const Shape shape{4095, 1, 0x1.fffffep-1F, 0x1.ff401p-3F};
  const float position = 2.0F / 4095.0F;
  const double twice = static_cast<double>(shape.to - shape.from) * static_cast<double>(position) +
                       static_cast<double>(shape.from);
  ASSERT_NE(static_cast<float>(twice), std::fma(shape.to - shape.from, position, shape.from));
  expectGains(shape);
}

TEST_P(MonitorGainKernelTest, SubnormalGainsGiveTheFormula) {
  const float least = std::numeric_limits<float>::denorm_min();
  for (const std::size_t frames : {2U, 3U, 7U, 100U, 511U, 1023U}) {
    for (const float from : {0.0F, least, 0x1p-126F, 0x1.8p-127F, 0x1.234p-130F}) {
      expectGains({frames * 2, 2, from, 3 * least});
      expectGains({frames * 2, 2, from, 0x1.fffffcp-127F});
      expectGains({frames * 2, 2, from, 0x1p-125F});
      if (HasFatalFailure()) return;
    }
  }
}

// From 0 to 1 the gain is the position itself.
TEST_P(MonitorGainKernelTest, PositionsAreTheQuotientsOfADivision) {
  Gains random;
  if (longRun() && std::string(kernel().name).starts_with("avx")) {  // the others do divide
    for (std::size_t frames = 1; frames <= 20'010; ++frames) {
      expectGains({frames, 1, 0.0F, 1.0F});
      if (HasFatalFailure()) return;
    }
    return;
  }
  for (std::size_t frames = 1; frames <= 400; ++frames) expectGains({frames, 1, 0.0F, 1.0F});
  for (int round = 0; round < 40; ++round) expectGains({401 + random.below(19'600), 1, 0.0F, 1.0F});
  // The last sample of these is a part of a frame, one beyond the count of frames.
  for (const std::size_t count : {5U, 37U, 39'999U}) expectGains({count, 2, 0.0F, 1.0F});
}

TEST_P(MonitorGainKernelTest, BuffersOfHugeLengthGiveTheFormula) {
  Gains random;
  for (const std::size_t frames : {20'001U, 65'535U, 262'145U}) expectGains({frames, 1, 0.0F, 1.0F});
  expectGains({100'000 + random.below(100'000), 1, 1.0F, 0.3F});
  if (!longRun()) return;
  for (int round = 0; round < 20; ++round) expectGains({20'011 + random.below(1'000'000), 1, 0.0F, 1.0F});
  // On both sides of where positions are divided, and above 2^24, where not every frame's number is a float.
  for (const std::size_t frames : {1'048'575U, 1'048'576U, 1'048'577U, 16'777'217U}) {
    expectGains({frames, 1, 0.0F, 1.0F});
  }
}

TEST_P(MonitorGainKernelTest, RendersThroughTheStateLikeTheFormula) {
  MonitorGainState* state = createState(kernel());
  ASSERT_NE(state, nullptr);
  std::vector<float> in(2 * 333);
  for (std::size_t sample = 0; sample < in.size(); ++sample)
    in[sample] = static_cast<float>(sample) / 512.0F - 0.5F;
  std::vector<float> out(in.size());
  test::BufferList input({test::bufferOf(2, in)});
  test::BufferList output({test::bufferOf(2, out)});
  float current = 1.0F;
  for (const float target : {1.0F, 0.4F, 0.4F, 0.0F, 0.0F, 0.123F, 1.0F}) {
    MonitorGainSet(state, target);
    MonitorGainRender(state, input.get(), output.get());
    for (std::size_t sample = 0; sample < in.size(); ++sample) {
      ASSERT_TRUE(sameBits(out[sample], formula({in.size(), 2, current, target}, sample, in[sample])))
          << current << " to " << target << ", sample " << sample;
    }
    current = target;
  }
  EXPECT_EQ(MonitorGainFrames(state), 7U);
  MonitorGainDestroy(state);
}

// The second buffer reads what the first one wrote, however often the direction changes.
TEST_P(MonitorGainKernelTest, LongBuffersThatShareMemoryAreRenderedInOrder) {
  MonitorGainState* state = createState(kernel());
  ASSERT_NE(state, nullptr);
  std::vector<float> in(10'000, 1.0F);
  std::vector<float> between(in.size());
  std::vector<float> out(in.size());
  test::BufferList input({test::bufferOf(1, in), test::bufferOf(1, between)});
  test::BufferList output({test::bufferOf(1, between), test::bufferOf(1, out)});
  for (const float target : {0.5F, 0.5F, 0.5F}) {
    MonitorGainSet(state, target);
    MonitorGainRender(state, input.get(), output.get());
    ASSERT_EQ(between.back(), target);
    ASSERT_EQ(out.back(), target * target);
  }
  ASSERT_EQ(out.front(), 0.25F);
  MonitorGainDestroy(state);
}

INSTANTIATE_TEST_SUITE_P(Kernels, MonitorGainKernelTest, testing::ValuesIn(kernelsOfThisMachine()),
                         [](const auto& info) { return std::string(info.param->name); });

TEST(ExactFusedMultiplyAddTest, DoublesRoundedToOddAgreeWithTheLibrary) {
  Gains random;
  const int count = longRun() ? 20'000'000 : 300'000;
  for (int round = 0; round < count; ++round) {
    const float a = random.next() - random.next();
    const float b = random.next() * 1.5F;
    const float c = random.next();
    ASSERT_TRUE(sameBits(fusedMultiplyAddInDoubles(a, b, c), std::fma(a, b, c)))
        << std::hexfloat << a << ' ' << b << ' ' << c;
  }
}

TEST(FastestKernelTest, NeedsBothVectorsAndFusedMultiplyAddForTheFastRoad) {
#if defined(__x86_64__)
  EXPECT_STREQ(fastestKernel({.avx2 = true, .fma = true, .avx512f = true}).name, "avx512");
  EXPECT_STREQ(fastestKernel({.avx2 = true, .fma = true, .avx512f = false}).name, "avx2");
  EXPECT_STREQ(fastestKernel({.avx2 = true, .fma = false, .avx512f = false}).name, "sse2");
  EXPECT_STREQ(fastestKernel({.avx2 = false, .fma = true, .avx512f = false}).name, "sse2");
  EXPECT_STREQ(fastestKernel({}).name, "sse2");
#else
  EXPECT_STREQ(fastestKernel({}).name, "portable");
#endif
}

}  // namespace
}  // namespace monitor::gain
