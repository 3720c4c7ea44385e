// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/Analyser.h"

#include <gtest/gtest.h>

#include <cmath>

#include "Tests/Tools/AudioLab/Sound.h"
#include "Tools/AudioLab/CounterSignal.h"

namespace monitor::lab {
namespace {

std::vector<Joint> jointsOf(const Sound& sound) {
  return findJoints(sound.samples, findStretches(sound.samples));
}

TEST(Analyser, FindsOneSteadyStretchAcrossManyPeriods) {
  const auto stretches = findStretches(Sound().play(20'000).samples);
  ASSERT_EQ(stretches.size(), 1U);
  EXPECT_EQ(stretches[0].kind, StretchKind::Steady);
  EXPECT_EQ(stretches[0].frames, 20'000U);
  EXPECT_DOUBLE_EQ(stretches[0].gain, 1.0);
  EXPECT_EQ(stretches[0].phase, 3000U);
}

TEST(Analyser, MeasuresAGainToEightDigits) {
  for (const float gain : {0.001F, 0.1F, 0.4F, 0.999F, 1.4F}) {
    const auto stretches = findStretches(Sound().play(48'000, gain).samples);
    ASSERT_EQ(stretches.size(), 1U) << gain;
    EXPECT_NEAR(stretches[0].gain / static_cast<double>(gain), 1.0, 1e-8) << gain;
  }
}

TEST(Analyser, FindsTheSignalWhereverThePeriodBegins) {
  for (std::size_t skipped = 1090; skipped < 1100 + 2 * kShortestSteady; ++skipped) {
    const auto stretches = findStretches(Sound().skip(skipped).play(kShortestSteady, 0.4F).samples);
    ASSERT_EQ(stretches.size(), 1U) << skipped;
    EXPECT_EQ(stretches[0].kind, StretchKind::Steady) << skipped;
    EXPECT_EQ(stretches[0].phase, (3000 + skipped) % kCounterPeriod) << skipped;
  }
}

TEST(Analyser, TakesLessThanTheShortestStretchForChange) {
  const auto stretches = findStretches(Sound().play(kShortestSteady - 1).samples);
  ASSERT_EQ(stretches.size(), 1U);
  EXPECT_EQ(stretches[0].kind, StretchKind::Changing);
}

TEST(Analyser, CountsASilentGapOfAProgramThatRunsOn) {
  const auto joints = jointsOf(Sound().play(5000).silence(256).skip(256).play(5000, 0.4F));
  ASSERT_EQ(joints.size(), 1U);
  EXPECT_EQ(joints[0].silentFrames, 256U);
  EXPECT_EQ(joints[0].delayedFrames, 0);
  EXPECT_EQ(joints[0].rampFrames, 0U);
  EXPECT_EQ(joints[0].after.first, 5256U);
}

TEST(Analyser, CountsTheLatencyThatAPausedProgramGains) {
  const auto joints = jointsOf(Sound().play(5000).silence(256).play(5000, 0.4F));
  ASSERT_EQ(joints.size(), 1U);
  EXPECT_EQ(joints[0].silentFrames, 256U);
  EXPECT_EQ(joints[0].delayedFrames, 256);
}

TEST(Analyser, CountsLostAndRepeatedFrames) {
  const auto lost = jointsOf(Sound().play(5000).skip(100).play(5000));
  ASSERT_EQ(lost.size(), 1U);
  EXPECT_EQ(lost[0].delayedFrames, -100);
  EXPECT_EQ(lost[0].silentFrames, 0U);
  const auto repeated = jointsOf(Sound().play(5000).goBack(100).play(5000));
  ASSERT_EQ(repeated.size(), 1U);
  EXPECT_EQ(repeated[0].delayedFrames, 100);
}

TEST(Analyser, SeesOneLostFrame) {
  const auto joints = jointsOf(Sound().play(5000, 0.4F).skip(1).play(5000, 0.4F));
  ASSERT_EQ(joints.size(), 1U);
  EXPECT_EQ(joints[0].delayedFrames, -1);
}

TEST(Analyser, MeasuresALinearRampOfOneBuffer) {
  for (const std::size_t frames : {2U, 64U, 256U, 1024U, 8192U}) {
    const auto joints = jointsOf(Sound().play(5000).ramp(frames, 1.0F, 0.4F).play(5000, 0.4F));
    ASSERT_EQ(joints.size(), 1U) << frames;
    EXPECT_EQ(joints[0].rampFrames, frames);
    EXPECT_TRUE(joints[0].linearRamp) << frames;
    EXPECT_EQ(joints[0].delayedFrames, 0);
    EXPECT_EQ(joints[0].silentFrames, 0U);
  }
}

TEST(Analyser, CallsAChangeFromFrameToFrameNoRamp) {
  const auto joints = jointsOf(Sound().play(5000).play(5000, 0.4F));
  ASSERT_EQ(joints.size(), 1U);
  EXPECT_EQ(joints[0].rampFrames, 0U);
  EXPECT_FALSE(joints[0].linearRamp);
}

TEST(Analyser, RefusesTheNameLinearForABentRamp) {
  const auto joints =
      jointsOf(Sound().play(5000).ramp(256, 1.0F, 0.9F).ramp(256, 0.9F, 0.4F).play(5000, 0.4F));
  ASSERT_EQ(joints.size(), 1U);
  EXPECT_EQ(joints[0].rampFrames, 512U);
  EXPECT_FALSE(joints[0].linearRamp);
}

TEST(Analyser, MeasuresTheRampAfterAGap) {
  const auto joints =
      jointsOf(Sound().play(5000).silence(256).skip(256).ramp(256, 1.0F, 0.4F).play(5000, 0.4F));
  ASSERT_EQ(joints.size(), 1U);
  EXPECT_EQ(joints[0].silentFrames, 256U);
  EXPECT_EQ(joints[0].rampFrames, 256U);
  EXPECT_FALSE(joints[0].linearRamp);  // there is more than the ramp between the two
}

TEST(Analyser, HearsAProgramThatIsPlayedTwice) {
  const auto stretches = findStretches(Sound().play(5000).play(512, 1.4F).play(5000, 0.4F).samples);
  ASSERT_EQ(stretches.size(), 3U);
  EXPECT_NEAR(stretches[1].gain, 1.4, 1e-7);
  EXPECT_EQ(stretches[1].frames, 512U);
}

TEST(Analyser, SumsUpAWindow) {
  const auto stretches = findStretches(Sound().play(1000).silence(100).skip(100).play(1000, 0.5F).samples);
  const auto all = measureSteadiness(stretches, 0, 2100);
  EXPECT_DOUBLE_EQ(all.gain, 0.75);
  EXPECT_DOUBLE_EQ(all.lowest, 0.5);
  EXPECT_DOUBLE_EQ(all.highest, 1.0);
  EXPECT_EQ(all.steadyFrames, 2000U);
  EXPECT_EQ(all.silentFrames, 100U);
  EXPECT_EQ(all.delayedFrames, 0);
  const auto part = measureSteadiness(stretches, 900, 1050);
  EXPECT_DOUBLE_EQ(part.gain, 1.0);
  EXPECT_EQ(part.steadyFrames, 100U);
  EXPECT_EQ(part.silentFrames, 50U);
  EXPECT_EQ(measureSteadiness(stretches, 3000, 4000).steadyFrames, 0U);
}

TEST(Analyser, FindsTheReturnOfAGain) {
  const auto stretches =
      findStretches(Sound().play(1000).play(1000, 0.4F).play(40).play(500, 0.4F).play(1000).samples);
  const auto* back = findSteady(stretches, 1.0, 1e-6, 1000, 256);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->first, 2540U);
  EXPECT_EQ(findSteady(stretches, 0.7, 1e-6, 0), nullptr);
}

TEST(Analyser, DrawsTheLevelAgainstWhatIsPlayed) {
  const Sound sound = Sound().play(512).silence(256).skip(256).ramp(256, 1.0F, 0.5F).play(300, 0.5F);
  const auto curve = levelCurve(sound.samples, findStretches(sound.samples), 256);
  ASSERT_EQ(curve.size(), 6U);
  EXPECT_DOUBLE_EQ(curve[0], 1.0);
  EXPECT_DOUBLE_EQ(curve[2], 0.0);
  EXPECT_NEAR(curve[3], 0.75, 0.01);
  EXPECT_NEAR(curve[4], 0.5, 1e-6);
  EXPECT_NEAR(curve[5], 0.5, 1e-6);
}

TEST(Analyser, MeasuresThePitchOfAResampledSignal) {
  std::vector<float> samples;
  for (int i = 0; i < 48'000; ++i) {
    const double position = i * 44'100.0 / 48'000.0;
    samples.push_back(0.4F * static_cast<float>((std::fmod(position, 4096.0) + 1.0) / 8192.0));
  }
  EXPECT_NEAR(sawPeriod(samples), 4096.0 * 48'000.0 / 44'100.0, 0.2);
  EXPECT_DOUBLE_EQ(sawPeriod(Sound().play(20'000, 0.4F).samples), 4096.0);
  EXPECT_EQ(sawPeriod(Sound().play(2000).samples), 0.0);
}

TEST(Analyser, MeasuresAnEffectiveLevel) {
  EXPECT_EQ(effectiveLevel({}), 0.0);
  EXPECT_DOUBLE_EQ(effectiveLevel(std::vector<float>(100, -0.5F)), 0.5);
  const double whole = effectiveLevel(Sound().play(40'960).samples);
  EXPECT_NEAR(whole, 0.5 / std::sqrt(3.0), 1e-4);
  EXPECT_NEAR(effectiveLevel(Sound().play(40'960, 0.4F).samples) / whole, 0.4, 1e-6);
}

TEST(Analyser, NeverTakesNoiseForTheSignal) {
  std::vector<float> samples;
  std::uint32_t state = 12345;
  for (int i = 0; i < 100'000; ++i) {
    state = state * 1664525U + 1013904223U;
    samples.push_back(static_cast<float>(state >> 8) / 16777216.0F - 0.5F);
  }
  for (const auto& stretch : findStretches(samples)) EXPECT_NE(stretch.kind, StretchKind::Steady);
}

TEST(Analyser, TakesAnEmptyRecording) {
  EXPECT_TRUE(findStretches({}).empty());
  EXPECT_TRUE(findJoints({}, {}).empty());
  EXPECT_TRUE(levelCurve({}, {}, 256).empty());
}

}  // namespace
}  // namespace monitor::lab
