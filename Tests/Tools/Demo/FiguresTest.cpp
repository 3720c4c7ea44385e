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
  figures.takeovers.assign(5, {.milliseconds = 20.0, .gapFrames = 256});
  figures.rampFrames = 256;
  figures.rampLinear = true;
  figures.loudest = 1.0;
  figures.killedMs = 100.0;
  return figures;
}

void setAll(Figures& figures, const Takeover& takeover) {
  figures.takeovers.assign(5, takeover);
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
  EXPECT_THAT(with([](Figures& f) { setAll(f, {.milliseconds = 20.01}); }), Contains("takeoverMs"));
  EXPECT_THAT(with([](Figures& f) { setAll(f, {.gapFrames = 257}); }), Contains("gapFrames"));
  EXPECT_THAT(with([](Figures& f) { setAll(f, {.addedLatencyFrames = 1}); }), Contains("addedLatencyFrames"));
  EXPECT_THAT(with([](Figures& f) { setAll(f, {.addedLatencyFrames = -1}); }),
              Contains("addedLatencyFrames"));
  EXPECT_THAT(with([](Figures& f) { f.rampFrames = 255; }), Contains("rampFrames"));
  EXPECT_THAT(with([](Figures& f) { f.rampLinear = false; }), Contains("rampFrames"));
  EXPECT_THAT(with([](Figures& f) { f.otherLowest = 0.999999; }), Contains("otherLevel"));
  EXPECT_THAT(with([](Figures& f) { f.otherHighest = 1.000001; }), Contains("otherLevel"));
  EXPECT_THAT(with([](Figures& f) { f.otherDisturbedFrames = 1; }), Contains("otherDisturbedFrames"));
  EXPECT_THAT(with([](Figures& f) { f.otherDelayedFrames = 1; }), Contains("otherDelayedFrames"));
  EXPECT_THAT(with([](Figures& f) { f.loudest = 1.000001; }), Contains("loudest"));
  EXPECT_THAT(with([](Figures& f) { f.killedMs = 100.01; }), Contains("killedMs"));
  EXPECT_THAT(with([](Figures& f) { f.missedFrames = 1; }), Contains("missedFrames"));
}

TEST(Figures, TakesTheControlStretchOffTheGap) {
  Figures figures = good();
  setAll(figures, {.gapFrames = 512, .controlGapFrames = 256});
  EXPECT_THAT(outOfBounds(figures), testing::IsEmpty());
  setAll(figures, {.gapFrames = 512, .controlGapFrames = 1000});
  EXPECT_THAT(outOfBounds(figures), testing::IsEmpty());
  setAll(figures, {.gapFrames = 512, .controlGapFrames = 255});
  EXPECT_THAT(outOfBounds(figures), testing::ElementsAre("gapFrames"));
}

TEST(Figures, JudgesTakeoversByTheirMedian) {
  const Takeover bad{.milliseconds = 90.0, .gapFrames = 2000, .addedLatencyFrames = 256};
  Figures figures = good();
  figures.takeovers[0] = figures.takeovers[3] = bad;
  EXPECT_THAT(outOfBounds(figures), testing::IsEmpty());
  figures.takeovers[1] = bad;
  EXPECT_THAT(outOfBounds(figures), testing::ElementsAre("takeoverMs", "gapFrames", "addedLatencyFrames"));
}

TEST(Figures, IsPatientWithTimeOnly) {
  Figures figures = good();
  setAll(figures, {.milliseconds = 60.0});
  figures.killedMs = 300.0;
  EXPECT_THAT(outOfBounds(figures, 3.0), testing::IsEmpty());
  setAll(figures, {.gapFrames = 257});
  EXPECT_THAT(outOfBounds(figures, 3.0), testing::ElementsAre("gapFrames"));
}

TEST(Figures, NamesInJsonWhatIsOutOfBounds) {
  Figures figures = good();
  setAll(figures, {.milliseconds = 12.5, .gapFrames = 301, .controlGapFrames = 1});
  figures.resetMs = 1234.5;
  const json::Document document(toJson(figures, judge(figures, 1.0)).text());
  EXPECT_EQ(document.root().at("gapFrames").integer<int>(), 300);
  ASSERT_EQ(document.root().at("takeovers").size(), 5U);
  EXPECT_EQ(document.root().at("takeovers")[4].at("milliseconds").number(), 12.5);
  EXPECT_EQ(document.root().at("takeovers")[4].at("gapFrames").integer<int>(), 301);
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
