// SPDX-License-Identifier: MIT
#include "Tools/Demo/Figures.h"

#include <gmock/gmock.h>

namespace monitor::demo {
namespace {

Figures good() {
  Figures figures;
  figures.levelBefore = figures.levelAfter = figures.otherLowest = figures.otherHighest = 1.0;
  figures.levelDuring = 0.4;
  figures.levelChanged = 0.8;
  figures.takeoverMs = 20.0;
  figures.gapFrames = 256;
  figures.rampFrames = 256;
  figures.rampLinear = true;
  figures.killedMs = 100.0;
  return figures;
}

std::vector<std::string> outOfBounds(const Figures& figures, double patience = 1.0) {
  std::vector<std::string> keys;
  for (const auto& verdict : judge(figures, patience)) {
    if (!verdict.within) keys.push_back(verdict.key);
  }
  return keys;
}

TEST(Figures, AcceptsEveryFigureAtItsBound) {
  EXPECT_THAT(outOfBounds(good()), testing::IsEmpty());
  EXPECT_TRUE(allWithin(judge(good(), 1.0)));
}

TEST(Figures, RefusesTheFirstValueBeyondEachBound) {
  const auto with = [](auto change) {
    Figures figures = good();
    change(figures);
    return outOfBounds(figures);
  };
  using testing::Contains;
  EXPECT_THAT(with([](Figures& f) { f.levelBefore = 0.999999; }), Contains("levelBefore"));
  EXPECT_THAT(with([](Figures& f) { f.levelDuring = 0.400001; }), Contains("levelDuring"));
  EXPECT_THAT(with([](Figures& f) { f.levelDuring = 0.400001; }), Contains("ratio"));
  EXPECT_THAT(with([](Figures& f) { f.levelAfter = 0.999999; }), Contains("levelAfter"));
  EXPECT_THAT(with([](Figures& f) { f.levelChanged = 0.799999; }), Contains("levelChanged"));
  EXPECT_THAT(with([](Figures& f) { f.takeoverMs = 20.01; }), Contains("takeoverMs"));
  EXPECT_THAT(with([](Figures& f) { f.gapFrames = 257; }), Contains("gapFrames"));
  EXPECT_THAT(with([](Figures& f) { f.addedLatencyFrames = 1; }), Contains("addedLatencyFrames"));
  EXPECT_THAT(with([](Figures& f) { f.addedLatencyFrames = -1; }), Contains("addedLatencyFrames"));
  EXPECT_THAT(with([](Figures& f) { f.rampFrames = 255; }), Contains("rampFrames"));
  EXPECT_THAT(with([](Figures& f) { f.rampLinear = false; }), Contains("rampFrames"));
  EXPECT_THAT(with([](Figures& f) { f.otherLowest = 0.999999; }), Contains("otherLevel"));
  EXPECT_THAT(with([](Figures& f) { f.otherHighest = 1.000001; }), Contains("otherLevel"));
  EXPECT_THAT(with([](Figures& f) { f.otherDisturbedFrames = 1; }), Contains("otherDisturbedFrames"));
  EXPECT_THAT(with([](Figures& f) { f.otherDelayedFrames = 1; }), Contains("otherDelayedFrames"));
  EXPECT_THAT(with([](Figures& f) { f.killedMs = 100.01; }), Contains("killedMs"));
  EXPECT_THAT(with([](Figures& f) { f.missedFrames = 1; }), Contains("missedFrames"));
}

TEST(Figures, TakesTheControlStretchOffTheGap) {
  Figures figures = good();
  figures.gapFrames = 512;
  figures.controlGapFrames = 256;
  EXPECT_THAT(outOfBounds(figures), testing::IsEmpty());
  figures.controlGapFrames = 1000;
  EXPECT_THAT(outOfBounds(figures), testing::IsEmpty());
}

TEST(Figures, IsPatientWithTimeOnly) {
  Figures figures = good();
  figures.takeoverMs = 60.0;
  figures.killedMs = 300.0;
  EXPECT_THAT(outOfBounds(figures, 3.0), testing::IsEmpty());
  figures.gapFrames = 257;
  EXPECT_THAT(outOfBounds(figures, 3.0), testing::ElementsAre("gapFrames"));
}

TEST(Figures, NamesInJsonWhatIsOutOfBounds) {
  Figures figures = good();
  figures.gapFrames = 300;
  figures.resetMs = 1234.5;
  const json::Document document(toJson(figures, judge(figures, 1.0)).text());
  EXPECT_EQ(document.root().at("gapFrames").integer<int>(), 300);
  EXPECT_EQ(document.root().at("ratio").number(), 0.4);
  EXPECT_EQ(document.root().at("resetMs").number(), 1234.5);
  ASSERT_EQ(document.root().at("outOfBounds").size(), 1U);
  EXPECT_EQ(document.root().at("outOfBounds")[0].string(), "gapFrames");
}

TEST(Figures, LeavesOutOfJsonWhatWasNotSeen) {
  const json::Document document(toJson(good(), judge(good(), 1.0)).text());
  EXPECT_FALSE(document.root().find("resetMs").has_value());
  EXPECT_EQ(document.root().at("outOfBounds").size(), 0U);
}

}  // namespace
}  // namespace monitor::demo
