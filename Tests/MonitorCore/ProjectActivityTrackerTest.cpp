// SPDX-License-Identifier: MIT
#include "MonitorCore/ProjectActivityTracker.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <set>

#include "Tests/MonitorCore/Support/RandomProcesses.h"

namespace monitor {
namespace {

constexpr ProcessKey kServer{10, 1};
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

ProcessSample idleServer() {
  ProcessSample sample;
  sample.key = kServer;
  sample.cpu = 0.1;
  sample.diskRead = 0.0;
  sample.diskWrite = 0.0;
  sample.ports = {3000};
  return sample;
}

// Seconds of idleness after one more sample; absent when the process is not tracked.
std::optional<double> observe(ProjectActivityTracker& tracker, const ProcessSample& sample, double seconds) {
  tracker.observe({sample}, Date{seconds});
  const auto found = tracker.lowActivitySeconds().find(sample.key);
  return found == tracker.lowActivitySeconds().end() ? std::nullopt : std::optional(found->second);
}

template <class Change>
bool isIdleAfter(Change change) {
  ProcessSample sample = idleServer();
  change(sample);
  ProjectActivityTracker tracker;
  return observe(tracker, sample, 0.0).has_value();
}

TEST(ProjectActivityTrackerTest, FirstObservationGivesEveryIdleListenerZeroSeconds) {
  ProjectActivityTracker tracker;
  EXPECT_EQ(tracker.previous(), std::nullopt);
  EXPECT_EQ(observe(tracker, idleServer(), 1000.0), 0.0);
  EXPECT_EQ(tracker.previous(), Date{1000.0});
  EXPECT_EQ(tracker.starts().at(kServer), Date{1000.0});
}

TEST(ProjectActivityTrackerTest, SecondsAddUpOverSamples) {
  ProjectActivityTracker tracker;
  EXPECT_EQ(observe(tracker, idleServer(), 100.0), 0.0);
  EXPECT_EQ(observe(tracker, idleServer(), 102.0), 2.0);
  EXPECT_EQ(observe(tracker, idleServer(), 104.0), 4.0);
}

TEST(ProjectActivityTrackerTest, NinetySecondsContinueAndMoreStartAgain) {
  ProjectActivityTracker tracker;
  observe(tracker, idleServer(), 0.0);
  EXPECT_EQ(observe(tracker, idleServer(), 90.0), 90.0);
  EXPECT_EQ(observe(tracker, idleServer(), 181.0), 0.0);
  EXPECT_EQ(observe(tracker, idleServer(), 271.5), 0.0);
}

TEST(ProjectActivityTrackerTest, ClockStepBackwardsStartsAgain) {
  ProjectActivityTracker tracker;
  observe(tracker, idleServer(), 100.0);
  EXPECT_EQ(observe(tracker, idleServer(), 99.0), 0.0);
  EXPECT_EQ(observe(tracker, idleServer(), 101.0), 2.0);
}

TEST(ProjectActivityTrackerTest, SameDateTwiceContinues) {
  ProjectActivityTracker tracker;
  observe(tracker, idleServer(), 100.0);
  observe(tracker, idleServer(), 101.0);
  EXPECT_EQ(observe(tracker, idleServer(), 101.0), 1.0);
}

TEST(ProjectActivityTrackerTest, LimitsOfCpuAndDiskAreExclusive) {
  EXPECT_TRUE(isIdleAfter([](ProcessSample& s) { s.cpu = 0.99; }));
  EXPECT_FALSE(isIdleAfter([](ProcessSample& s) { s.cpu = 1.0; }));
  EXPECT_TRUE(isIdleAfter([](ProcessSample& s) { s.diskRead = 1000.0, s.diskWrite = 23.0; }));
  EXPECT_FALSE(isIdleAfter([](ProcessSample& s) { s.diskRead = 1000.0, s.diskWrite = 24.0; }));
}

TEST(ProjectActivityTrackerTest, AbsentFiguresAreNotIdle) {
  EXPECT_FALSE(isIdleAfter([](ProcessSample& s) { s.cpu.reset(); }));
  EXPECT_FALSE(isIdleAfter([](ProcessSample& s) { s.diskRead.reset(); }));
  EXPECT_FALSE(isIdleAfter([](ProcessSample& s) { s.diskWrite.reset(); }));
}

TEST(ProjectActivityTrackerTest, NaNIsNotIdle) {
  EXPECT_FALSE(isIdleAfter([](ProcessSample& s) { s.cpu = kNaN; }));
  EXPECT_FALSE(isIdleAfter([](ProcessSample& s) { s.diskRead = kNaN; }));
  EXPECT_FALSE(isIdleAfter([](ProcessSample& s) { s.diskWrite = kNaN; }));
}

TEST(ProjectActivityTrackerTest, NetworkTrafficDoesNotCount) {
  EXPECT_TRUE(isIdleAfter([](ProcessSample& s) { s.download = 1e9, s.upload = 1e9; }));
}

TEST(ProjectActivityTrackerTest, ProcessThatDoesNotListenIsNeverTracked) {
  EXPECT_FALSE(isIdleAfter([](ProcessSample& s) { s.ports.clear(); }));
}

TEST(ProjectActivityTrackerTest, BusySampleStartsAgain) {
  ProjectActivityTracker tracker;
  ProcessSample busy = idleServer();
  busy.cpu = 50.0;
  observe(tracker, idleServer(), 0.0);
  EXPECT_EQ(observe(tracker, busy, 2.0), std::nullopt);
  EXPECT_EQ(observe(tracker, idleServer(), 4.0), 0.0);
}

TEST(ProjectActivityTrackerTest, ProcessThatDisappearedStartsAgain) {
  ProjectActivityTracker tracker;
  observe(tracker, idleServer(), 0.0);
  tracker.observe({}, Date{2.0});
  EXPECT_TRUE(tracker.lowActivitySeconds().empty());
  EXPECT_EQ(observe(tracker, idleServer(), 4.0), 0.0);
}

TEST(ProjectActivityTrackerTest, ReusedPidIsAnotherProcess) {
  ProjectActivityTracker tracker;
  observe(tracker, idleServer(), 0.0);
  ProcessSample other = idleServer();
  other.key.start = 2;
  EXPECT_EQ(observe(tracker, other, 2.0), 0.0);
  EXPECT_EQ(tracker.lowActivitySeconds().size(), 1U);
}

TEST(ProjectActivityTrackerTest, ResetForgetsEverything) {
  ProjectActivityTracker tracker;
  observe(tracker, idleServer(), 0.0);
  tracker.reset();
  EXPECT_TRUE(tracker.starts().empty());
  EXPECT_TRUE(tracker.lowActivitySeconds().empty());
  EXPECT_EQ(tracker.previous(), std::nullopt);
  EXPECT_EQ(observe(tracker, idleServer(), 5.0), 0.0);
}

// Reads the whole story back from its end: idle time reaches to the earliest sample from which on the process
// was idle in every one, without a break between any two.
std::map<std::string, double> idleFromHistory(
    const std::vector<std::pair<double, std::vector<ProcessSample>>>& story) {
  std::map<std::string, double> idle;
  const auto isIdleIn = [](const std::vector<ProcessSample>& samples, const ProcessKey& key) {
    for (const ProcessSample& s : samples) {
      if (s.key == key && s.cpu && *s.cpu < 1.0 && s.diskRead && s.diskWrite &&
          *s.diskRead + *s.diskWrite < 1024.0 && !s.ports.empty()) {
        return true;
      }
    }
    return false;
  };
  for (const ProcessSample& sample : story.back().second) {
    std::optional<double> since;
    for (std::size_t index = story.size(); index-- > 0;) {
      if (!isIdleIn(story[index].second, sample.key)) break;
      since = story[index].first;
      if (index == 0) break;
      const double step = story[index].first - story[index - 1].first;
      if (step > 90.0 || step < 0.0) break;
    }
    if (since) idle[sample.key.id()] = story.back().first - *since;
  }
  return idle;
}

TEST(ProjectActivityTrackerTest, AgreesWithTheWholeStoryOnRandomSamples) {
  testing::Chance chance(44);
  const std::vector<double> steps{2.0, 2.0, 2.0, 2.0, 0.0, 90.0, 90.5, -1.0, 400.0};
  for (int round = 0; round < testing::rounds(60); ++round) {
    ProjectActivityTracker tracker;
    std::vector<std::pair<double, std::vector<ProcessSample>>> story;
    double date = 1000.0;
    for (int step = 0; step < 40; ++step) {
      date += chance.of(steps);
      std::vector<ProcessSample> samples;
      for (std::int32_t pid = 0; pid < 5; ++pid) {
        ProcessSample sample = idleServer();
        sample.key = {pid, chance.oneIn(12) ? 2U : 1U};
        if (chance.oneIn(10)) sample.cpu = testing::anyFigure(chance);
        if (chance.oneIn(10)) sample.diskWrite = testing::anyFigure(chance);
        if (chance.oneIn(15)) sample.ports.clear();
        if (!chance.oneIn(12)) samples.push_back(sample);
      }
      story.emplace_back(date, samples);
      tracker.observe(samples, Date{date});
      std::map<std::string, double> idle;
      for (const auto& [key, seconds] : tracker.lowActivitySeconds()) idle[key.id()] = seconds;
      ASSERT_EQ(idle, idleFromHistory(story)) << "round " << round << " step " << step;
    }
  }
}

}  // namespace
}  // namespace monitor
