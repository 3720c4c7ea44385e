// SPDX-License-Identifier: MIT
#include "Tools/Demo/Measure.h"

#include <gtest/gtest.h>

#include "Tests/Tools/Demo/MadeUpRun.h"
#include "Tools/AudioLab/LabError.h"

namespace monitor::demo {
namespace {

constexpr double kCycleMs = static_cast<double>(kCycleNanoseconds) / 1e6;

Figures measureRun(const MadeUpRun& run) {
  return measure(recordingOf(run.routed, run.other), run.timeline, 0, 1);
}

TEST(Measure, ReadsAFaultlessRun) {
  const auto figures = measureRun(MadeUpRun());
  EXPECT_EQ(figures.quantum, 256U);
  EXPECT_DOUBLE_EQ(figures.levelBefore, 1.0);
  EXPECT_NEAR(figures.levelDuring, 0.4, 1e-8);
  EXPECT_NEAR(figures.levelChanged, 0.8, 1e-7);
  EXPECT_DOUBLE_EQ(figures.levelAfter, 1.0);
  EXPECT_NEAR(figures.ratio(), 0.4, 1e-8);
  // The first frame at 40 % is the last of the cycle that ramps.
  ASSERT_EQ(figures.takeovers.size(), 5U);
  for (const auto& takeover : figures.takeovers) {
    EXPECT_NEAR(takeover.milliseconds, 2 * kCycleMs, 1e-3);
    EXPECT_NEAR(takeover.commandMs, 3 * kCycleMs, 1e-3);
    EXPECT_EQ(takeover.gapFrames, 0U);
    EXPECT_EQ(takeover.addedLatencyFrames, 0);
  }
  EXPECT_EQ(figures.takeovers.front().rampFrames, 256U);
  EXPECT_EQ(figures.rampFrames, 256U);
  EXPECT_TRUE(figures.rampLinear);
  EXPECT_EQ(figures.releaseGapFrames, 0U);
  EXPECT_DOUBLE_EQ(figures.loudest, 1.0);
  EXPECT_DOUBLE_EQ(figures.otherLowest, 1.0);
  EXPECT_DOUBLE_EQ(figures.otherHighest, 1.0);
  EXPECT_EQ(figures.otherDisturbedFrames, 0U);
  EXPECT_EQ(figures.killedGapFrames, 256U);
  EXPECT_NEAR(figures.killedMs, 3 * kCycleMs, 1e-3);
  EXPECT_FALSE(figures.resetMs.has_value());
  EXPECT_EQ(figures.missedFrames, 0U);
}

TEST(Measure, CountsGapAndLatencyOfATakeover) {
  MadeUpRun run;
  run.routed = lab::Sound();
  run.routed.play(102 * 256).silence(512).play(98 * 256, 0.4F).play(100 * 256, 0.8F).play(100 * 256);
  run.finish();
  const auto figures = measureRun(run);
  EXPECT_EQ(figures.takeovers.front().gapFrames, 512U);
  EXPECT_EQ(figures.takeovers.front().addedLatencyFrames, 512);
  EXPECT_EQ(figures.rampFrames, 0U);
}

TEST(Measure, CountsGapsOfTheControlStretch) {
  MadeUpRun run;
  // The takeover ends four cycles after the request; the gap lies in the four cycles before it.
  run.routed = lab::Sound();
  run.routed.play(97 * 256).silence(256).skip(256).play(6 * 256).play(96 * 256, 0.4F).play(100 * 256, 0.8F);
  run.routed.play(100 * 256);
  run.finish();
  EXPECT_EQ(measureRun(run).takeovers.front().controlGapFrames, 256U);
}

TEST(Measure, HearsAProgramThatIsPlayedTwice) {
  MadeUpRun run;
  for (std::size_t i = 50 * 256; i < 51 * 256; ++i) run.routed.samples[i] *= 1.5F;
  EXPECT_NEAR(measureRun(run).loudest, 1.5, 1e-7);
}

TEST(Measure, SeesWhatHappensToTheOtherProgram) {
  MadeUpRun run;
  run.other = lab::Sound();
  run.other.play(200 * 256).silence(100).skip(50).play(100 * 256, 0.9F).play(900 * 256);
  const auto figures = measureRun(run);
  EXPECT_NEAR(figures.otherLowest, 0.9, 1e-7);
  EXPECT_DOUBLE_EQ(figures.otherHighest, 1.0);
  EXPECT_EQ(figures.otherDisturbedFrames, 100U);
  EXPECT_EQ(figures.otherDelayedFrames, 50);
}

TEST(Measure, KeepsTheOtherProgramsGapAfterTheKillApart) {
  MadeUpRun run;
  run.other = lab::Sound();
  run.other.play((MadeUpRun::kKilled + 1) * 256).silence(256).play(100 * 256);
  const auto figures = measureRun(run);
  EXPECT_EQ(figures.otherDisturbedFrames, 0U);
  EXPECT_EQ(figures.otherKilledGapFrames, 256U);
}

TEST(Measure, NoticesThatTheAgentSetsTheGainAgain) {
  MadeUpRun run;
  run.routed.play(50 * 256, 0.4F);
  run.other.play(50 * 256);
  const auto figures = measureRun(run);
  ASSERT_TRUE(figures.resetMs.has_value());
  EXPECT_NEAR(*figures.resetMs, 100 * kCycleMs, 1e-3);
}

TEST(Measure, RefusesARunThatNeverGotThere) {
  MadeUpRun run;
  run.routed = run.other;
  EXPECT_THROW(static_cast<void>(measureRun(run)), lab::LabError);
}

}  // namespace
}  // namespace monitor::demo
