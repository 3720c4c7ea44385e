// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/MonitorGain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <span>
#include <thread>
#include <vector>

#include "Tests/MonitorAudioEngine/GainBuffers.h"

namespace monitor {
namespace {

using test::BufferList;
using test::bufferOf;

struct Destroy {
  void operator()(MonitorGainState* state) const { MonitorGainDestroy(state); }
};

class MonitorGainTest : public testing::Test {
 protected:
  void render(std::vector<MonitorAudioBuffer> inputs, std::vector<MonitorAudioBuffer> outputs) {
    BufferList input(inputs);
    BufferList output(outputs);
    MonitorGainRender(gain(), input.get(), output.get());
  }

  // One buffer of ones in; what comes out are the gains themselves.
  std::vector<float> renderOnes(std::uint32_t channels, std::size_t samples) {
    std::vector<float> in(samples, 1.0F);
    std::vector<float> out(samples, 9.0F);
    render({bufferOf(channels, in)}, {bufferOf(channels, out)});
    return out;
  }

  [[nodiscard]] MonitorGainState* gain() const { return state_.get(); }
  [[nodiscard]] bool failed() const { return MonitorGainFailed(gain()); }
  [[nodiscard]] std::uint64_t frames() const { return MonitorGainFrames(gain()); }

  // The gain stored for `value`, as heard once it is reached.
  float stored(float value) {
    MonitorGainSet(gain(), value);
    renderOnes(1, 1);
    return renderOnes(1, 1).front();
  }

 private:
  std::unique_ptr<MonitorGainState, Destroy> state_{MonitorGainCreate()};
};

TEST_F(MonitorGainTest, NewStatePassesSamplesUnchangedAndHasRenderedNothing) {
  EXPECT_FALSE(failed());
  EXPECT_EQ(frames(), 0U);
  std::vector<float> in{0.25F, -0.5F, 1.0F, -1.0F};
  std::vector<float> out(4, 9.0F);
  render({bufferOf(2, in)}, {bufferOf(2, out)});
  EXPECT_EQ(out, in);
  EXPECT_EQ(frames(), 1U);
}

TEST_F(MonitorGainTest, DestroyingNothingIsAllowed) {
  MonitorGainDestroy(nullptr);
}

TEST_F(MonitorGainTest, ZeroBufferOutputListFails) {
  std::vector<float> in(4, 1.0F);
  render({bufferOf(2, in)}, {});
  EXPECT_TRUE(failed());
  EXPECT_EQ(frames(), 0U);
}

TEST_F(MonitorGainTest, BothListsWithoutBuffersFail) {
  render({}, {});
  EXPECT_TRUE(failed());
  EXPECT_EQ(frames(), 0U);
}

TEST_F(MonitorGainTest, DifferentBufferCountsFailAndLeaveEveryOutputSilent) {
  std::vector<float> in(4, 1.0F);
  std::vector<float> first(4, 9.0F);
  std::vector<float> second(6, 9.0F);
  render({bufferOf(2, in)}, {bufferOf(2, first), bufferOf(2, second)});
  EXPECT_TRUE(failed());
  EXPECT_EQ(first, std::vector<float>(4, 0.0F));
  EXPECT_EQ(second, std::vector<float>(6, 0.0F));
  EXPECT_EQ(frames(), 0U);
}

TEST_F(MonitorGainTest, MoreInputsThanOutputsFail) {
  std::vector<float> in(4, 1.0F);
  std::vector<float> out(4, 9.0F);
  render({bufferOf(2, in), bufferOf(2, in)}, {bufferOf(2, out)});
  EXPECT_TRUE(failed());
  EXPECT_EQ(out, std::vector<float>(4, 0.0F));
}

struct Mismatch {
  const char* name;
  void (*spoil)(MonitorAudioBuffer& input, MonitorAudioBuffer& output);
};

class MonitorGainMismatchTest : public MonitorGainTest, public testing::WithParamInterface<Mismatch> {};

TEST_P(MonitorGainMismatchTest, MismatchInTheSecondBufferFailsAndRendersNeither) {
  std::vector<float> in(8, 1.0F);
  std::vector<float> first(8, 9.0F);
  std::vector<float> second(8, 9.0F);
  std::vector inputs{bufferOf(2, in), bufferOf(2, in)};
  std::vector outputs{bufferOf(2, first), bufferOf(2, second)};
  GetParam().spoil(inputs[1], outputs[1]);
  const bool secondIsZeroed = outputs[1].mData != nullptr;
  const std::size_t zeroed = outputs[1].mDataByteSize / sizeof(float);
  render(inputs, outputs);
  EXPECT_TRUE(failed());
  EXPECT_EQ(frames(), 0U);
  EXPECT_EQ(first, std::vector<float>(8, 0.0F));
  if (secondIsZeroed) {
    EXPECT_TRUE(std::all_of(second.begin(), second.begin() + static_cast<std::ptrdiff_t>(zeroed),
                            [](float sample) { return sample == 0.0F; }));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, MonitorGainMismatchTest,
    testing::Values(Mismatch{"InputChannels", [](auto& input, auto&) { input.mNumberChannels = 1; }},
                    Mismatch{"OutputChannels", [](auto&, auto& output) { output.mNumberChannels = 4; }},
                    Mismatch{"InputSize", [](auto& input, auto&) { input.mDataByteSize -= 4; }},
                    Mismatch{"OutputSize", [](auto&, auto& output) { output.mDataByteSize -= 1; }},
                    Mismatch{"InputWithoutData", [](auto& input, auto&) { input.mData = nullptr; }},
                    Mismatch{"OutputWithoutData", [](auto&, auto& output) { output.mData = nullptr; }},
                    Mismatch{"OutputWithoutDataAndSize",
                             [](auto& input, auto& output) {
                               output = {2, 0, nullptr}, input.mDataByteSize = 0;
                             }},
                    Mismatch{"NoChannels",
                             [](auto& input, auto& output) {
                               input.mNumberChannels = output.mNumberChannels = 0;
                             }}),
    [](const auto& info) { return info.param.name; });

TEST_F(MonitorGainTest, FailedRenderNeitherMovesTheRampNorClearsTheFlagLater) {
  MonitorGainSet(gain(), 0.5F);
  std::vector<float> in(2, 1.0F);
  render({bufferOf(2, in)}, {});
  EXPECT_EQ(renderOnes(2, 8), (std::vector{0.875F, 0.875F, 0.75F, 0.75F, 0.625F, 0.625F, 0.5F, 0.5F}));
  EXPECT_TRUE(failed());
  EXPECT_EQ(frames(), 1U);
}

TEST_F(MonitorGainTest, BufferBelowFourBytesIsLeftSilentWithoutFailing) {
  for (std::uint32_t size = 0; size < 4; ++size) {
    std::array<unsigned char, 4> in{1, 2, 3, 4};
    std::array<unsigned char, 4> out{9, 9, 9, 9};
    render({{1, size, in.data()}}, {{1, size, out.data()}});
    for (std::uint32_t byte = 0; byte < 4; ++byte)
      EXPECT_EQ(out[byte], byte < size ? 0 : 9) << size << ' ' << byte;
  }
  EXPECT_FALSE(failed());
  EXPECT_EQ(frames(), 4U);
}

TEST_F(MonitorGainTest, BytesBehindTheLastWholeSampleAreSilent) {
  std::vector<float> in(4, 1.0F);
  std::vector<float> out(4, 9.0F);
  auto* rest = reinterpret_cast<unsigned char*>(&out[3]);
  std::fill_n(rest, 4, static_cast<unsigned char>(0xAB));
  render({{1, 15, in.data()}}, {{1, 15, out.data()}});
  EXPECT_EQ(std::vector(out.begin(), out.begin() + 3), std::vector<float>(3, 1.0F));
  EXPECT_EQ(std::vector(rest, rest + 4), (std::vector<unsigned char>{0, 0, 0, 0xAB}));
  EXPECT_FALSE(failed());
}

TEST_F(MonitorGainTest, WithMoreChannelsThanSamplesEverySampleHasTheFullTarget) {
  MonitorGainSet(gain(), 0.25F);
  EXPECT_EQ(renderOnes(8, 7), std::vector<float>(7, 0.25F));
  MonitorGainSet(gain(), 0.75F);
  EXPECT_EQ(renderOnes(std::numeric_limits<std::uint32_t>::max(), 3), std::vector<float>(3, 0.75F));
}

TEST_F(MonitorGainTest, WithAsManyChannelsAsSamplesTheOneFrameHasTheFullTarget) {
  MonitorGainSet(gain(), 0.25F);
  EXPECT_EQ(renderOnes(7, 7), std::vector<float>(7, 0.25F));
}

TEST_F(MonitorGainTest, GainIsStoredWithinZeroAndOne) {
  const float infinity = std::numeric_limits<float>::infinity();
  EXPECT_EQ(stored(2.0F), 1.0F);
  EXPECT_EQ(stored(-0.5F), 0.0F);
  EXPECT_EQ(stored(std::numeric_limits<float>::quiet_NaN()), 1.0F);
  EXPECT_EQ(stored(0.5F), 0.5F);
  EXPECT_EQ(stored(infinity), 1.0F);
  EXPECT_EQ(stored(0.5F), 0.5F);
  EXPECT_EQ(stored(-infinity), 1.0F);
  EXPECT_EQ(stored(std::nextafter(1.0F, 2.0F)), 1.0F);
  EXPECT_EQ(stored(std::nextafter(1.0F, 0.0F)), std::nextafter(1.0F, 0.0F));
  EXPECT_EQ(stored(std::numeric_limits<float>::denorm_min()), std::numeric_limits<float>::denorm_min());
}

TEST_F(MonitorGainTest, NegativeZeroIsStoredAsZero) {
  EXPECT_EQ(stored(-0.0F), 0.0F);
  EXPECT_FALSE(std::signbit(stored(-0.0F)));
}

TEST_F(MonitorGainTest, FourStereoFramesFromOneToHalfStepDownByAnEighthEach) {
  MonitorGainSet(gain(), 0.5F);
  EXPECT_EQ(renderOnes(2, 8), (std::vector{0.875F, 0.875F, 0.75F, 0.75F, 0.625F, 0.625F, 0.5F, 0.5F}));
  EXPECT_EQ(renderOnes(2, 8), std::vector<float>(8, 0.5F)) << "the next buffer is steady";
}

TEST_F(MonitorGainTest, RampStartsWhereTheLastOneEndedAlsoWhenTheTargetChangedTwice) {
  MonitorGainSet(gain(), 0.0F);
  MonitorGainSet(gain(), 0.5F);  // the first target was never rendered
  EXPECT_EQ(renderOnes(1, 2), (std::vector{0.75F, 0.5F}));
  MonitorGainSet(gain(), 1.0F);
  EXPECT_EQ(renderOnes(1, 4), (std::vector{0.625F, 0.75F, 0.875F, 1.0F}));
}

TEST_F(MonitorGainTest, EveryBufferOfAListHasItsOwnWholeRamp) {
  MonitorGainSet(gain(), 0.5F);
  std::vector<float> in(4, 1.0F);
  std::vector<float> mono(4, 9.0F);
  std::vector<float> stereo(4, 9.0F);
  render({bufferOf(1, in), bufferOf(2, in)}, {bufferOf(1, mono), bufferOf(2, stereo)});
  EXPECT_EQ(mono, (std::vector{0.875F, 0.75F, 0.625F, 0.5F}));
  EXPECT_EQ(stereo, (std::vector{0.75F, 0.75F, 0.5F, 0.5F}));
  EXPECT_EQ(frames(), 1U);
}

TEST_F(MonitorGainTest, SamplesBehindTheLastWholeFrameGoOnBeyondTheTarget) {
  MonitorGainSet(gain(), 0.0F);
  // Seven samples of three channels: two frames and one sample, which has the position 3 / 2.
  EXPECT_EQ(renderOnes(3, 7), (std::vector{0.5F, 0.5F, 0.5F, 0.0F, 0.0F, 0.0F, -0.5F}));
}

TEST_F(MonitorGainTest, FramesGrowByOnePerSuccessfulRenderOnly) {
  for (std::uint64_t expected = 1; expected <= 3; ++expected) {
    renderOnes(2, 64);
    EXPECT_EQ(frames(), expected);
  }
  render({}, {});
  EXPECT_EQ(frames(), 3U);
  renderOnes(2, 64);
  EXPECT_EQ(frames(), 4U);
}

TEST_F(MonitorGainTest, InPlaceBuffersAreSilent) {
  for (const float target : {1.0F, 0.5F, 0.5F}) {
    MonitorGainSet(gain(), target);
    std::vector<float> samples(100, 0.5F);
    render({bufferOf(2, samples)}, {bufferOf(2, samples)});
    EXPECT_EQ(samples, std::vector<float>(100, 0.0F));
  }
  EXPECT_FALSE(failed());
  EXPECT_EQ(frames(), 3U);
}

TEST_F(MonitorGainTest, OutputThatIsAnotherBuffersInputSilencesIt) {
  std::vector<float> first(16, 0.5F);
  std::vector<float> second(16, 0.25F);
  std::vector<float> third(16, 9.0F);
  render({bufferOf(2, first), bufferOf(2, second)}, {bufferOf(2, second), bufferOf(2, third)});
  EXPECT_EQ(second, std::vector<float>(16, 0.5F));
  EXPECT_EQ(third, std::vector<float>(16, 0.5F)) << "reads what the first buffer wrote";
}

TEST_F(MonitorGainTest, OutputsThatShareMemoryAreWrittenOneAfterTheOther) {
  std::vector<float> first(16, 1.0F);
  std::vector<float> second(16, 0.5F);
  std::vector<float> out(24, 9.0F);
  MonitorGainSet(gain(), 0.0F);
  render({bufferOf(2, first), bufferOf(2, second)},
         {bufferOf(2, std::span(out).first(16)), bufferOf(2, std::span(out).last(16))});
  std::vector<float> expected;
  for (int sample = 0; sample < 8; ++sample)
    expected.push_back(1.0F - static_cast<float>(sample / 2 + 1) / 8.0F);
  for (int sample = 0; sample < 16; ++sample) {
    expected.push_back(0.5F - static_cast<float>(sample / 2 + 1) / 16.0F);
  }
  EXPECT_EQ(out, expected);
  EXPECT_FALSE(failed());
}

// From this many samples on, every other render goes from the end to the beginning.
TEST_F(MonitorGainTest, LongBuffersSoundTheSameInEveryRender) {
  for (const std::size_t frames : {3071U, 3072U, 3073U, 4096U, 5000U, 40'000U}) {
    std::vector<float> in(2 * frames);
    for (std::size_t sample = 0; sample < in.size(); ++sample)
      in[sample] = static_cast<float>(sample % 97) - 48.0F;
    std::vector<float> out(in.size());
    const auto left = [frames](std::vector<float>& samples) { return std::span(samples).first(frames); };
    const auto right = [frames](std::vector<float>& samples) { return std::span(samples).last(frames); };
    float from = stored(1.0F);
    for (const float to : {1.0F, 1.0F, 0.25F, 0.25F, 0.75F, 0.5F, 0.5F, 0.5F, 1.0F}) {
      MonitorGainSet(gain(), to);
      render({bufferOf(2, in)}, {bufferOf(2, out)});
      for (std::size_t sample = 0; sample < in.size(); ++sample) {
        const float position = static_cast<float>(sample / 2 + 1) / static_cast<float>(frames);
        ASSERT_EQ(out[sample], in[sample] * std::fma(to - from, position, from))
            << frames << " frames, " << sample;
      }
      render({bufferOf(1, left(in)), bufferOf(1, right(in))},
             {bufferOf(1, left(out)), bufferOf(1, right(out))});
      for (std::size_t sample = 0; sample < in.size(); ++sample) ASSERT_EQ(out[sample], in[sample] * to);
      from = to;
    }
  }
}

// Whichever way each of them is written, the later one is heard where they meet.
TEST_F(MonitorGainTest, LongOutputsThatShareMemoryAreWrittenOneAfterTheOtherInEveryRender) {
  constexpr std::size_t kFrames = 8192;
  std::vector<float> first(kFrames, 1.0F);
  std::vector<float> second(kFrames, 2.0F);
  std::vector<float> out(kFrames + kFrames / 2);
  for (const float target : {1.0F, 1.0F, 0.5F, 0.5F, 0.25F, 1.0F}) {
    MonitorGainSet(gain(), target);
    for (int again = 0; again < 3; ++again) {
      render({bufferOf(1, first), bufferOf(1, second)},
             {bufferOf(1, std::span(out).first(kFrames)), bufferOf(1, std::span(out).last(kFrames))});
      ASSERT_EQ(out.back(), 2.0F * target);
      if (again == 0) continue;  // may have been a ramp
      for (std::size_t sample = 0; sample < out.size(); ++sample) {
        ASSERT_EQ(out[sample], sample < kFrames / 2 ? target : 2.0F * target) << sample;
      }
    }
  }
}

TEST_F(MonitorGainTest, ChannelsOfOneListAreRampedAlikeHoweverManyThereAre) {
  for (const std::size_t channels : {1U, 2U, 3U, 8U, 9U, 20U}) {
    MonitorGainSet(gain(), 1.0F);
    renderOnes(1, 1);
    MonitorGainSet(gain(), 0.5F);
    std::vector<std::vector<float>> ins(channels, std::vector<float>(400, 1.0F));
    std::vector<std::vector<float>> outs(channels, std::vector<float>(400, 9.0F));
    std::vector<MonitorAudioBuffer> inputs;
    std::vector<MonitorAudioBuffer> outputs;
    for (std::size_t channel = 0; channel < channels; ++channel) {
      inputs.push_back(bufferOf(1, ins[channel]));
      outputs.push_back(bufferOf(1, outs[channel]));
    }
    render(inputs, outputs);
    for (std::size_t sample = 0; sample < 400; ++sample) {
      const float expected = std::fma(-0.5F, static_cast<float>(sample + 1) / 400.0F, 1.0F);
      for (const std::vector<float>& out : outs)
        ASSERT_EQ(out[sample], expected) << channels << ' ' << sample;
    }
  }
}

// What the rules say of shared memory, written down word for word.
void renderSlowly(float* in, float* out, std::size_t samples, float current, float target) {
  std::memset(out, 0, samples * sizeof(float));
  for (std::size_t sample = 0; sample < samples; ++sample) {
    const float position = static_cast<float>(sample / 2 + 1) / static_cast<float>(samples / 2);
    out[sample] = in[sample] * std::fma(target - current, position, current);
  }
}

TEST_F(MonitorGainTest, PartlySharedMemoryIsSilencedFirstAndThenRenderedInOrder) {
  constexpr std::size_t kSamples = 64;
  for (const std::ptrdiff_t shift : {-63, -16, -3, -1, 1, 2, 15, 63}) {
    MonitorGainSet(gain(), 1.0F);
    renderOnes(2, 2);
    MonitorGainSet(gain(), 0.5F);
    std::vector<float> actual(3 * kSamples, 0.75F);
    std::vector<float> expected = actual;
    const auto at = [&](std::vector<float>& memory, std::ptrdiff_t offset) {
      return std::span(memory).subspan(static_cast<std::size_t>(std::ptrdiff_t{kSamples} + offset), kSamples);
    };
    renderSlowly(at(expected, 0).data(), at(expected, shift).data(), kSamples, 1.0F, 0.5F);
    render({bufferOf(2, at(actual, 0))}, {bufferOf(2, at(actual, shift))});
    EXPECT_EQ(actual, expected) << shift;
  }
}

TEST_F(MonitorGainTest, ListOfManyBuffersRendersLikeAShortOne) {
  constexpr std::size_t kBuffers = 200;
  std::vector<std::vector<float>> ins(kBuffers, std::vector<float>(8, 1.0F));
  std::vector<std::vector<float>> outs(kBuffers, std::vector<float>(8, 9.0F));
  std::vector<MonitorAudioBuffer> inputs;
  std::vector<MonitorAudioBuffer> outputs;
  for (std::size_t index = 0; index < kBuffers; ++index) {
    inputs.push_back(bufferOf(2, ins[index]));
    outputs.push_back(bufferOf(2, outs[index]));
  }
  MonitorGainSet(gain(), 0.5F);
  render(inputs, outputs);
  for (const auto& out : outs) {
    EXPECT_EQ(out, (std::vector{0.875F, 0.875F, 0.75F, 0.75F, 0.625F, 0.625F, 0.5F, 0.5F}));
  }
}

TEST_F(MonitorGainTest, NotANumberAndInfinityPassThroughAsTheMultiplicationSays) {
  const float infinity = std::numeric_limits<float>::infinity();
  std::vector<float> in{std::numeric_limits<float>::quiet_NaN(), infinity, -infinity, -0.0F};
  std::vector<float> out(4);
  MonitorGainSet(gain(), 0.5F);
  renderOnes(1, 1);
  render({bufferOf(2, in)}, {bufferOf(2, out)});
  EXPECT_TRUE(std::isnan(out[0]));
  EXPECT_EQ(out[1], infinity);
  EXPECT_EQ(out[2], -infinity);
  EXPECT_TRUE(out[3] == 0.0F && std::signbit(out[3]));
  MonitorGainSet(gain(), 0.0F);
  renderOnes(1, 1);
  render({bufferOf(2, in)}, {bufferOf(2, out)});
  EXPECT_TRUE(std::isnan(out[1])) << "infinity times zero";
}

TEST_F(MonitorGainTest, GainIsSetAndReadWhileAnotherThreadRenders) {
  std::atomic<bool> stop{false};
  std::thread renderer([&] {
    std::vector<float> in(64, 1.0F);
    std::vector<float> out(64);
    BufferList input({bufferOf(2, in)});
    BufferList output({bufferOf(2, out)});
    while (!stop.load(std::memory_order_relaxed)) {
      MonitorGainRender(gain(), input.get(), output.get());
      for (const float sample : out) ASSERT_TRUE(sample >= 0.0F && sample <= 1.0F) << sample;
    }
  });
  // Until both have met often enough; the deadline is only for a machine that never runs the other thread.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  std::uint64_t last = 0;
  for (int round = 0; round < 20'000 || (last < 1'000 && std::chrono::steady_clock::now() < deadline);
       ++round) {
    MonitorGainSet(gain(), static_cast<float>(round % 11) / 10.0F);
    const std::uint64_t now = frames();
    EXPECT_GE(now, last);
    last = now;
    EXPECT_FALSE(failed());
  }
  EXPECT_GE(last, 1'000U);
  stop = true;
  renderer.join();
}

}  // namespace
}  // namespace monitor
