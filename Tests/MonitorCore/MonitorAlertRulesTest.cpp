// SPDX-License-Identifier: MIT
#include "MonitorCore/MonitorAlertRules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>

#include "Tests/MonitorCore/Support/NaiveAlertRules.h"
#include "Tests/MonitorCore/Support/RandomProcesses.h"

namespace monitor {
namespace {

using testing::Chance;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr std::uint64_t kMegabyte = 1'000'000;

AppUsage app(std::string id, std::optional<double> cpu, std::uint64_t memory = 0) {
  AppUsage usage;
  usage.name = "Name of " + id;
  usage.id = std::move(id);
  usage.cpu = cpu;
  usage.memory = memory;
  return usage;
}

MonitorPreferences alertsOn() {
  MonitorPreferences preferences;
  preferences.alertsEnabled = true;
  preferences.cpuDuration = 60.0;
  return preferences;
}

std::vector<std::string> ids(const std::vector<MonitorAlert>& alerts) {
  std::vector<std::string> list;
  for (const MonitorAlert& alert : alerts) list.push_back(alert.id);
  return list;
}

// One set of rules fed with one app, or several, at dates in seconds.
struct Feed {
  MonitorPreferences preferences = alertsOn();
  MonitorAlertRules rules;

  std::vector<std::string> at(double seconds, const std::vector<AppUsage>& apps) {
    return ids(rules.evaluate(apps, Date{seconds}, preferences));
  }
  std::vector<std::string> at(double seconds, const AppUsage& app) { return at(seconds, std::vector{app}); }
  // Every `step` seconds from `from` to `to`, both included; the dates at which an alert came.
  std::vector<double> run(double from, double to, double step, const AppUsage& app) {
    std::vector<double> dates;
    for (double date = from; date <= to; date += step) {
      if (!at(date, app).empty()) dates.push_back(date);
    }
    return dates;
  }
};

TEST(MonitorAlertRulesTest, SwitchedOffClearsTheTimersButNotTheCoolDowns) {
  Feed feed;
  feed.run(0, 60, 2, app("a", 90.0));
  ASSERT_EQ(feed.rules.sent().size(), 1U);
  feed.preferences.alertsEnabled = false;
  EXPECT_THAT(feed.at(62, app("a", 90.0)), IsEmpty());
  EXPECT_TRUE(feed.rules.starts().empty());
  EXPECT_TRUE(feed.rules.memory().empty());
  EXPECT_EQ(feed.rules.lastSample(), std::nullopt);
  EXPECT_EQ(feed.rules.sent().at("a|cpu"), Date{60});
}

TEST(MonitorAlertRulesTest, ResetKeepsWhatWasSent) {
  Feed feed;
  feed.run(0, 60, 2, app("a", 90.0));
  feed.rules.reset();
  EXPECT_TRUE(feed.rules.starts().empty());
  EXPECT_TRUE(feed.rules.memory().empty());
  EXPECT_EQ(feed.rules.lastSample(), std::nullopt);
  EXPECT_EQ(feed.rules.sent().size(), 1U);
  EXPECT_THAT(feed.run(62, 1858, 2, app("a", 90.0)), IsEmpty());
  EXPECT_THAT(feed.at(1860, app("a", 90.0)), ElementsAre("a|cpu"));
}

TEST(MonitorAlertRulesTest, CpuAlertComesAfterItsDurationAndAgainAfterTheCoolDown) {
  Feed feed;
  EXPECT_THAT(feed.run(100, 4000, 2, app("a", 80.0)), ElementsAre(160, 1960, 3760));
}

TEST(MonitorAlertRulesTest, AlertTextsNameTheAppAndTheThreshold) {
  Feed feed;
  feed.preferences.cpuThreshold = 79.9;
  feed.preferences.diskThreshold = 1.0;
  feed.preferences.networkThreshold = 1.0;
  AppUsage busy = app("com.example.editor", 80.0);
  busy.name = "Editor";
  busy.diskRead = 1.0;
  busy.upload = 1.0;
  std::vector<MonitorAlert> alerts;
  for (double date = 0; date <= 300; date += 60) {
    for (const MonitorAlert& alert : feed.rules.evaluate({busy}, Date{date}, feed.preferences)) {
      alerts.push_back(alert);
    }
  }
  EXPECT_THAT(alerts,
              ElementsAre(MonitorAlert{"com.example.editor|cpu", "com.example.editor", "Editor is busy",
                                       "CPU stayed above 79% of one core."},
                          MonitorAlert{"com.example.editor|disk", "com.example.editor", "Editor is busy",
                                       "Sustained disk activity exceeded your threshold."},
                          MonitorAlert{"com.example.editor|network", "com.example.editor", "Editor is busy",
                                       "Sustained network activity exceeded your threshold."}));
}

TEST(MonitorAlertRulesTest, NegativeThresholdIsCutTowardZeroInTheText) {
  Feed feed;
  feed.preferences.cpuThreshold = -0.9;
  feed.preferences.cpuDuration = 0.0;
  const auto alerts = feed.rules.evaluate({app("a", std::nullopt)}, Date{0}, feed.preferences);
  ASSERT_EQ(alerts.size(), 1U);
  EXPECT_EQ(alerts[0].detail, "CPU stayed above 0% of one core.");
}

TEST(MonitorAlertRulesTest, TimersLiveThroughNinetySecondsAndNotLonger) {
  Feed continued;
  continued.at(0, app("a", 90.0));
  EXPECT_THAT(continued.at(90, app("a", 90.0)), ElementsAre("a|cpu"));
  Feed broken;
  broken.at(0, app("a", 90.0));
  EXPECT_THAT(broken.at(91, app("a", 90.0)), IsEmpty());
  EXPECT_EQ(broken.rules.starts().at("a|cpu"), Date{91});
  Feed barely;
  barely.at(0, app("a", 90.0));
  EXPECT_THAT(barely.at(90.5, app("a", 90.0)), IsEmpty());
}

TEST(MonitorAlertRulesTest, ClockStepBackwardsRestartsTimersAndHistories) {
  Feed feed;
  feed.at(100, app("a", 90.0));
  feed.at(150, app("a", 90.0));
  EXPECT_THAT(feed.at(149, app("a", 90.0)), IsEmpty());
  EXPECT_EQ(feed.rules.starts().at("a|cpu"), Date{149});
  EXPECT_EQ(feed.rules.memory().at("a").size(), 1U);
  EXPECT_THAT(feed.at(208, app("a", 90.0)), IsEmpty());
  EXPECT_THAT(feed.at(209, app("a", 90.0)), ElementsAre("a|cpu"));
}

TEST(MonitorAlertRulesTest, OneQuietSampleRestartsTheTimer) {
  Feed feed;
  feed.at(0, app("a", 90.0));
  feed.at(30, app("a", 79.0));
  EXPECT_TRUE(feed.rules.starts().empty());
  EXPECT_THAT(feed.run(40, 98, 2, app("a", 90.0)), IsEmpty());
  EXPECT_THAT(feed.at(100, app("a", 90.0)), ElementsAre("a|cpu"));
}

TEST(MonitorAlertRulesTest, DiskThresholdOfZeroNeverFires) {
  Feed feed;
  AppUsage busy = app("a", 0.0);
  busy.diskRead = 1e12;
  busy.download = 1e12;
  EXPECT_THAT(feed.run(0, 4000, 10, busy), IsEmpty());
}

TEST(MonitorAlertRulesTest, CpuThresholdOfZeroIsOverEvenWithoutAFigure) {
  Feed feed;
  feed.preferences.cpuThreshold = 0.0;
  EXPECT_THAT(feed.run(0, 60, 10, app("a", std::nullopt)), ElementsAre(60));
}

TEST(MonitorAlertRulesTest, DiskAndNetworkAddBothDirectionsAndTakeFiveMinutes) {
  Feed feed;
  feed.preferences.diskThreshold = 100.0;
  feed.preferences.networkThreshold = 100.0;
  AppUsage busy = app("a", 0.0);
  busy.diskRead = 60.0;
  busy.diskWrite = 40.0;
  busy.upload = 100.0;
  EXPECT_THAT(feed.run(0, 298, 2, busy), IsEmpty());
  EXPECT_THAT(feed.at(300, busy), ElementsAre("a|disk", "a|network"));
  busy.diskWrite = 39.0;
  busy.upload = 99.0;
  feed.at(302, busy);
  EXPECT_TRUE(feed.rules.starts().empty());
}

TEST(MonitorAlertRulesTest, NaNFigureIsNotOver) {
  Feed feed;
  feed.preferences.diskThreshold = 1.0;
  AppUsage odd = app("a", kNaN);
  odd.diskRead = kNaN;
  odd.diskWrite = 1e9;
  feed.at(0, odd);
  EXPECT_TRUE(feed.rules.starts().empty());
}

TEST(MonitorAlertRulesTest, ExcludedAppIsNotJudgedAndForgotten) {
  Feed feed;
  feed.at(0, app("a", 90.0));
  feed.preferences.excludedApps = {"a"};
  EXPECT_THAT(feed.at(60, app("a", 90.0)), IsEmpty());
  EXPECT_TRUE(feed.rules.starts().empty());
  EXPECT_TRUE(feed.rules.memory().empty());
  feed.preferences.excludedApps.clear();
  EXPECT_THAT(feed.at(62, app("a", 90.0)), IsEmpty());
}

TEST(MonitorAlertRulesTest, AppThatDisappearedIsForgotten) {
  Feed feed;
  feed.at(0, {app("a", 90.0), app("b", 90.0)});
  feed.at(10, app("b", 90.0));
  EXPECT_EQ(feed.rules.starts().size(), 1U);
  EXPECT_EQ(feed.rules.memory().size(), 1U);
  EXPECT_THAT(feed.at(60, {app("a", 90.0), app("b", 90.0)}), ElementsAre("b|cpu"));
}

TEST(MonitorAlertRulesTest, TimersOfAnAppIdWithABarDoNotLast) {
  Feed feed;
  EXPECT_THAT(feed.run(0, 1000, 10, app("a|b", 90.0)), IsEmpty());
  EXPECT_EQ(feed.rules.starts().at("a|b|cpu"), Date{1000});
  // With an app that is called like its first piece they do.
  Feed both;
  both.at(0, {app("a|b", 90.0), app("a", 0.0)});
  EXPECT_THAT(both.at(60, {app("a|b", 90.0), app("a", 0.0)}), ElementsAre("a|b|cpu"));
  // Leading bars are empty pieces and do not count.
  Feed leading;
  leading.at(0, app("|a", 90.0));
  EXPECT_THAT(leading.at(60, {app("|a", 90.0), app("a", 0.0)}), ElementsAre("|a|cpu"));
}

TEST(MonitorAlertRulesTest, TimersOfTheEmptyAppIdDoNotLast) {
  Feed feed;
  EXPECT_THAT(feed.run(0, 1000, 10, app("", 90.0)), IsEmpty());
  Feed withCpu;  // its key is "|cpu", whose first piece is "cpu"
  withCpu.at(0, {app("", 90.0), app("cpu", 0.0)});
  EXPECT_THAT(withCpu.at(60, {app("", 90.0), app("cpu", 0.0)}), ElementsAre("|cpu"));
}

TEST(MonitorAlertRulesTest, MemoryMustGrowByHalfWithinTheHour) {
  const auto alertsFor = [](std::uint64_t megabytesAtTheEnd) {
    Feed feed;
    feed.preferences.memoryGrowthBytes = 100e6;
    feed.run(0, 3590, 10, app("a", 0.0, 1000 * kMegabyte));
    return feed.at(3600, app("a", 0.0, megabytesAtTheEnd * kMegabyte));
  };
  EXPECT_THAT(alertsFor(1400), IsEmpty());
  EXPECT_THAT(alertsFor(1499), IsEmpty());
  EXPECT_THAT(alertsFor(1500), ElementsAre("a|memory"));
  EXPECT_THAT(alertsFor(1600), ElementsAre("a|memory"));
}

TEST(MonitorAlertRulesTest, MemoryMustGrowByTheBytesOfThePreferences) {
  const auto alertsFor = [](double growthBytes) {
    Feed feed;
    feed.preferences.memoryGrowthBytes = growthBytes;
    feed.run(0, 3590, 10, app("a", 0.0, 100 * kMegabyte));
    return feed.at(3600, app("a", 0.0, 300 * kMegabyte));
  };
  EXPECT_THAT(alertsFor(200e6), ElementsAre("a|memory"));
  EXPECT_THAT(alertsFor(200e6 + 1), IsEmpty());
}

TEST(MonitorAlertRulesTest, MemoryAlertSaysWhy) {
  Feed feed;
  feed.preferences.memoryGrowthBytes = 1.0;
  feed.run(0, 3590, 10, app("a", 0.0, 1));
  const auto alerts = feed.rules.evaluate({app("a", 0.0, 10)}, Date{3600}, feed.preferences);
  EXPECT_THAT(alerts, ElementsAre(MonitorAlert{
                          "a|memory", "a", "Name of a is using more memory",
                          "Its process footprint grew over the last hour. Review the app to see why."}));
}

TEST(MonitorAlertRulesTest, LessThanAnHourOfHistoryRaisesNoMemoryAlert) {
  Feed feed;
  feed.preferences.memoryGrowthBytes = 1.0;
  feed.run(0, 3530, 10, app("a", 0.0, kMegabyte));
  EXPECT_THAT(feed.at(3540, app("a", 0.0, 1000 * kMegabyte)), IsEmpty());  // 59 minutes
  EXPECT_THAT(feed.at(3599, app("a", 0.0, 1000 * kMegabyte)), IsEmpty());
  EXPECT_THAT(feed.at(3600, app("a", 0.0, 1000 * kMegabyte)), ElementsAre("a|memory"));
}

TEST(MonitorAlertRulesTest, MemoryHistoryCoversSixtyOneMinutes) {
  Feed feed;
  feed.run(0, 3660, 60, app("a", 0.0, kMegabyte));
  EXPECT_EQ(feed.rules.memory().at("a").front().date, Date{0});
  feed.at(3661, app("a", 0.0, kMegabyte));
  EXPECT_EQ(feed.rules.memory().at("a").front().date, Date{60});
  EXPECT_EQ(feed.rules.memory().at("a").size(), 62U);
}

TEST(MonitorAlertRulesTest, MemoryAlertHasItsOwnCoolDown) {
  Feed feed;
  feed.preferences.memoryGrowthBytes = 1.0;
  std::vector<double> dates;
  for (double date = 0; date <= 7300; date += 10) {
    const auto memory = static_cast<std::uint64_t>(1000 + std::pow(date, 2));
    if (!feed.at(date, app("a", 0.0, memory)).empty()) dates.push_back(date);
  }
  EXPECT_THAT(dates, ElementsAre(3600, 5400, 7200));
}

TEST(MonitorAlertRulesTest, AlertsOfOneAppComeInTheOrderOfTheRules) {
  Feed feed;
  feed.preferences.cpuDuration = 300.0;
  feed.preferences.diskThreshold = 1.0;
  feed.preferences.networkThreshold = 1.0;
  feed.preferences.memoryGrowthBytes = 1.0;
  AppUsage busy = app("a", 90.0, 1);
  busy.diskRead = 2.0;
  busy.download = 2.0;
  feed.run(0, 3290, 10, app("a", 0.0, 1));
  EXPECT_THAT(feed.run(3300, 3590, 10, busy), IsEmpty());
  busy.memory = 10;
  EXPECT_THAT(feed.at(3600, busy), ElementsAre("a|cpu", "a|disk", "a|network", "a|memory"));
}

TEST(MonitorAlertRulesTest, AlertsComeInTheOrderOfTheApps) {
  Feed feed;
  feed.at(0, {app("b", 90.0), app("a", 90.0)});
  EXPECT_THAT(feed.at(60, {app("b", 90.0), app("a", 90.0)}), ElementsAre("b|cpu", "a|cpu"));
  EXPECT_EQ(feed.rules.sent().size(), 2U);
}

using MonitorAlertRulesDeathTest = ::testing::Test;

TEST(MonitorAlertRulesDeathTest, ThresholdThatIsNoIntegerStopsTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const double threshold : {kNaN, kInfinity, -kInfinity, 0x1p63, -0x1.0000000000001p63}) {
    MonitorPreferences preferences = alertsOn();
    preferences.cpuThreshold = threshold;
    MonitorAlertRules rules;
    EXPECT_DEATH(static_cast<void>(rules.evaluate({app("a", 1.0)}, Date{0}, preferences)),
                 "vesk: the CPU alert threshold .* is not a number that fits 64 bits");
  }
}

TEST(MonitorAlertRulesTest, LargestThresholdsThatFitAreAccepted) {
  for (const double threshold : {0x1.fffffffffffffp62, -0x1p63}) {
    MonitorPreferences preferences = alertsOn();
    preferences.cpuThreshold = threshold;
    preferences.cpuDuration = 0.0;
    MonitorAlertRules rules;
    const auto alerts = rules.evaluate({app("a", 1e300)}, Date{0}, preferences);
    ASSERT_EQ(alerts.size(), 1U);
    EXPECT_THAT(alerts[0].detail,
                HasSubstr(threshold > 0 ? "above 9223372036854774784%" : "above -9223372036854775808%"));
  }
}

TEST(MonitorAlertRulesTest, BadThresholdIsHarmlessWhileThereIsNothingToJudge) {
  MonitorPreferences preferences = alertsOn();
  preferences.cpuThreshold = kNaN;
  preferences.excludedApps = {"a"};
  MonitorAlertRules rules;
  EXPECT_THAT(rules.evaluate({app("a", 90.0)}, Date{0}, preferences), IsEmpty());
  preferences.alertsEnabled = false;
  EXPECT_THAT(rules.evaluate({app("b", 90.0)}, Date{2}, preferences), IsEmpty());
}

// A start can be NaN.
bool sameDates(const MonitorAlertRules::Dates& dates, const std::map<std::string, double>& expected) {
  if (dates.size() != expected.size()) return false;
  for (const auto& [key, date] : expected) {
    const auto found = dates.find(key);
    if (found == dates.end()) return false;
    const double real = found->second.secondsSince2001;
    if (real != date && !(std::isnan(real) && std::isnan(date))) return false;
  }
  return true;
}

// Compares alerts and the whole state.
void expectAgreement(const std::vector<MonitorAlert>& alerts, const std::vector<MonitorAlert>& expected,
                     const MonitorAlertRules& rules, const testing::NaiveAlertRules& naive,
                     const std::string& where) {
  ASSERT_EQ(ids(alerts), ids(expected)) << where;
  ASSERT_EQ(alerts, expected) << where;
  ASSERT_TRUE(sameDates(rules.starts(), naive.starts)) << where;
  ASSERT_TRUE(sameDates(rules.sent(), naive.sent)) << where;
  ASSERT_EQ(rules.lastSample().has_value(), naive.lastSample.has_value()) << where;
  ASSERT_EQ(rules.memory().size(), naive.memory.size()) << where;
  for (const auto& [id, history] : naive.memory) {
    const auto& real = rules.memory().at(id);
    ASSERT_EQ(real.size(), history.size()) << where;
    if (real.empty()) continue;
    ASSERT_EQ(real.front().date.secondsSince2001, history.front().first) << where;
    ASSERT_EQ(real.front().bytes, history.front().second) << where;
  }
}

AppUsage anyApp(Chance& chance) {
  static const std::vector<std::string> kIds{"a", "b", "c", "a|b", "|", "", "cpu", "||a"};
  static const std::vector<std::uint64_t> kMemory{
      0, 1, 100, 150, 151, 400, std::numeric_limits<std::uint64_t>::max()};
  AppUsage usage = app(chance.of(kIds), testing::anyFigure(chance), chance.of(kMemory));
  usage.diskRead = testing::anyFigure(chance);
  usage.diskWrite = testing::anyFigure(chance);
  usage.download = testing::anyFigure(chance);
  usage.upload = testing::anyFigure(chance);
  return usage;
}

void changeSomething(Chance& chance, MonitorPreferences& preferences) {
  switch (chance.below(6)) {
    case 0:
      preferences.alertsEnabled = !chance.oneIn(4);
      break;
    case 1:
      preferences.cpuThreshold = chance.of(std::vector<double>{-1, 0, 0.1, 2.5, 100});
      break;
    case 2:
      preferences.cpuDuration = chance.of(std::vector<double>{-5, 0, 4, 60, kNaN, kInfinity, -kInfinity});
      break;
    case 3:
      preferences.diskThreshold = chance.of(std::vector<double>{-1, 0, 0.1, 200, kNaN, kInfinity});
      break;
    case 4:
      preferences.memoryGrowthBytes = chance.of(std::vector<double>{-1, 0, 50, 1e6, kNaN, -kInfinity});
      break;
    default:
      preferences.excludedApps = chance.oneIn(2) ? std::set<std::string>{"a", ""} : std::set<std::string>{};
  }
}

TEST(MonitorAlertRulesTest, AgreesWithTheNaiveRulesOnRandomSamplesAndJumpingClocks) {
  Chance chance(42);
  const std::vector<double> steps{2, 2, 2, 30, 60, 90, 90, 90, 90, 90.5, 0, -1, 1800, kNaN, kInfinity};
  for (int round = 0; round < testing::rounds(100); ++round) {
    MonitorPreferences preferences = alertsOn();
    preferences.networkThreshold = 2.5;
    MonitorAlertRules rules;
    testing::NaiveAlertRules naive;
    std::vector<AppUsage> apps{anyApp(chance), anyApp(chance), anyApp(chance)};
    double date = 0.0;
    const bool jumps = chance.oneIn(2);
    for (int step = 0; step < 120; ++step) {
      date += jumps ? chance.of(steps) : 60.0 + static_cast<double>(chance.below(31));
      if (!std::isfinite(date) && chance.oneIn(2)) date = 5000.0;
      if (chance.oneIn(jumps ? 3 : 40)) apps[static_cast<std::size_t>(chance.below(3))] = anyApp(chance);
      if (chance.oneIn(12)) changeSomething(chance, preferences);
      const auto alerts = rules.evaluate(apps, Date{date}, preferences);
      const auto expected = naive.evaluate(apps, date, preferences);
      expectAgreement(alerts, expected, rules, naive,
                      "round " + std::to_string(round) + " step " + std::to_string(step));
      if (HasFatalFailure()) return;
    }
  }
}

// The apps of one moment of a working week: an editor that builds for twenty minutes every two hours, a
// browser that leaks memory all day and restarts at night, a backup that reads the disk for an hour each
// night.
std::vector<AppUsage> appsAt(double secondsIntoTheWeek) {
  const double secondsIntoTheDay = std::fmod(secondsIntoTheWeek, 86'400.0);
  const double hour = secondsIntoTheDay / 3600.0;
  const bool working = hour >= 8.0 && hour < 18.0;
  AppUsage editor =
      app("com.example.editor", std::fmod(secondsIntoTheDay, 7200.0) < 1200.0 && working ? 180.0 : 3.0,
          800 * kMegabyte);
  AppUsage browser = app("com.example.browser", 12.0, 0);
  browser.memory = (500 + static_cast<std::uint64_t>(hour * 400.0)) * kMegabyte;
  browser.download = working ? 3e5 : 0.0;
  AppUsage backup = app("com.example.backup", hour >= 2.0 && hour < 3.0 ? 20.0 : 0.0, 100 * kMegabyte);
  backup.diskRead = hour >= 2.0 && hour < 3.0 ? 2e8 : 0.0;
  backup.diskWrite = 1e3;
  std::vector<AppUsage> apps{editor, browser};
  if (hour >= 1.5 && hour < 4.0) apps.push_back(backup);
  return apps;
}

TEST(MonitorAlertRulesTest, SimulatedWeekRaisesWhatItShouldAndAgreesWithTheNaiveRules) {
  constexpr double kWeek = 7 * 86'400.0;
  MonitorPreferences preferences;
  preferences.alertsEnabled = true;
  preferences.memoryGrowthBytes = 268435456.0;
  preferences.diskThreshold = 1e8;
  preferences.networkThreshold = 1e6;
  MonitorAlertRules rules;
  testing::NaiveAlertRules naive;
  std::map<std::string, int> counts;
  const double monday = 800'000'000.0;
  for (double seconds = 0; seconds < kWeek; seconds += 60.0) {
    // The machine sleeps from 23:00 to midnight, and on Wednesday noon the clock is set back by ten minutes.
    if (std::fmod(seconds, 86'400.0) >= 82'800.0) continue;
    const double date = monday + seconds - (seconds > 2.5 * 86'400.0 ? 600.0 : 0.0);
    const auto apps = appsAt(seconds);
    const auto alerts = rules.evaluate(apps, Date{date}, preferences);
    expectAgreement(alerts, naive.evaluate(apps, date, preferences), rules, naive, std::to_string(seconds));
    if (HasFatalFailure()) return;
    for (const MonitorAlert& alert : alerts) ++counts[alert.id];
  }
  // Five builds a day, each longer than the ten minutes of the threshold and two hours apart.
  EXPECT_EQ(counts["com.example.editor|cpu"], 7 * 5);
  // An hour of reading gives an alert after five minutes and one more half an hour later.
  EXPECT_EQ(counts["com.example.backup|disk"], 7 * 2);
  // The browser doubles within the first hour of the day and is 50 % above the hour before until early
  // morning.
  EXPECT_GT(counts["com.example.browser|memory"], 0);
  EXPECT_EQ(counts.count("com.example.browser|network"), 0U);
  EXPECT_EQ(counts.count("com.example.browser|cpu"), 0U);
  EXPECT_EQ(counts.size(), 3U);
}

}  // namespace
}  // namespace monitor
