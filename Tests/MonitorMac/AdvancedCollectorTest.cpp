// SPDX-License-Identifier: MIT
#include "MonitorMac/AdvancedCollector.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "MonitorCore/MonitorError.h"
#include "Tests/Fakes/FakeProcessTable.h"
#include "Tests/Fakes/FakeToolRunner.h"
#include "Tests/Fakes/VirtualTime.h"

namespace monitor {
namespace {

using Outcome = ToolResult::Outcome;

constexpr std::uint64_t kStart = 1'731'700'000'000'000;

ToolResult exited(Data output, std::int32_t status = 0) {
  return {Outcome::Exited, status, std::move(output)};
}

Data propertyList(const std::string& content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>" + content +
         "</dict></plist>";
}

// Energy of one task, so that the sample shows which processes were known.
std::string task(std::int32_t pid) {
  return "<dict><key>pid</key><integer>" + std::to_string(pid) +
         "</integer><key>energy_impact</key><real>2.5</real></dict>";
}

class AdvancedCollectorTest : public ::testing::Test {
 protected:
  AdvancedSample sample(std::uint32_t owner = 501) {
    return AdvancedCollector::sample({runner, processes, wallClock, AdvancedCollector::kMacTool}, owner);
  }
  void script(Data help, Data output) {
    runner.results = {exited(std::move(help)), exited(std::move(output))};
  }
  [[nodiscard]] std::string samplersFor(const Data& help) {
    runner.runs.clear();
    script(help, propertyList(""));
    (void)sample();
    return runner.runs.at(1).arguments.at(1);
  }
  // The error of a sample whose run fails with `result`.
  [[nodiscard]] MonitorError failure() {
    try {
      (void)sample();
    } catch (const MonitorError& error) {
      return error;
    }
    return {"none", 0, "no error"};
  }

  fakes::VirtualTime time;
  fakes::FakeWallClock wallClock{time};
  fakes::FakeToolRunner runner;
  fakes::FakeProcessTable processes;
};

const std::string kBaseSamplers = "tasks,cpu_power,gpu_power,thermal";

TEST_F(AdvancedCollectorTest, RealRunHasExactlyTenArguments) {
  script("", propertyList(""));
  (void)sample();
  ASSERT_EQ(runner.runs.size(), 2U);
  EXPECT_EQ(runner.runs[1].arguments,
            (std::vector<std::string>{"--samplers", kBaseSamplers, "--show-process-netstats",
                                      "--show-process-energy", "--sample-count", "1", "--sample-rate", "1000",
                                      "--format", "plist"}));
}

TEST_F(AdvancedCollectorTest, BothRunsUseTheToolItsLimitsAndAFixedEnvironment) {
  script("", propertyList(""));
  (void)sample();
  const std::vector<std::pair<std::string, std::string>> environment{{"PATH", "/usr/bin:/bin"},
                                                                     {"LC_ALL", "C"}};
  for (const ToolRun& run : runner.runs) {
    EXPECT_EQ(run.executable, "/usr/bin/powermetrics");
    EXPECT_EQ(run.environment, environment);
    EXPECT_EQ(run.outputLimit, 8'388'608U);
  }
  EXPECT_EQ(runner.runs[0].arguments, std::vector<std::string>{"--help"});
  EXPECT_EQ(runner.runs[0].timeout, 2.0);
  EXPECT_TRUE(runner.runs[0].errorsToOutput);
  EXPECT_EQ(runner.runs[1].timeout, 5.0);
  EXPECT_FALSE(runner.runs[1].errorsToOutput);
}

TEST_F(AdvancedCollectorTest, HelpLineThatBeginsWithSmcAndABlankEnablesTheExtraSampler) {
  EXPECT_EQ(samplersFor("usage\n  smc   system management\n"), kBaseSamplers + ",smc");
  EXPECT_EQ(samplersFor("smc x"), kBaseSamplers + ",smc");
  EXPECT_EQ(samplersFor("\t smc sensors\r\nother"), kBaseSamplers + ",smc");
}

TEST_F(AdvancedCollectorTest, OtherHelpLinesDoNot) {
  EXPECT_EQ(samplersFor("smcx sensors"), kBaseSamplers);
  EXPECT_EQ(samplersFor("  smc_fans x\n"), kBaseSamplers);
  EXPECT_EQ(samplersFor("the smc sampler"), kBaseSamplers);
  EXPECT_EQ(samplersFor("smc\n"), kBaseSamplers);
  EXPECT_EQ(samplersFor("   smc   \n"), kBaseSamplers);
  EXPECT_EQ(samplersFor(""), kBaseSamplers);
}

TEST_F(AdvancedCollectorTest, HelpThatIsNotUtf8FindsNothing) {
  EXPECT_EQ(samplersFor("smc sensors\n\xFF\n"), kBaseSamplers);
}

TEST_F(AdvancedCollectorTest, ProbeThatExitsWithAnErrorStillCounts) {
  runner.results = {exited("smc sensors\n", 64), exited(propertyList(""))};
  (void)sample();
  EXPECT_EQ(runner.runs.at(1).arguments.at(1), kBaseSamplers + ",smc");
}

TEST_F(AdvancedCollectorTest, ToolThatCannotBeStartedFailsFromTheProbe) {
  runner.results = {{Outcome::StartFailed, ENOENT, {}}};
  const MonitorError error = failure();
  EXPECT_EQ(error.domain(), MonitorError::kPosixDomain);
  EXPECT_EQ(error.code(), ENOENT);
  EXPECT_EQ(runner.runs.size(), 1U);
}

TEST_F(AdvancedCollectorTest, RunThatFailsInAnyWayIsErrorOneOfTheMonitor) {
  const MonitorError expected("Monitor", 1, "macOS could not collect the optional hardware readings.");
  for (const ToolResult& result :
       {exited(propertyList(""), 1), ToolResult{Outcome::StillRunning, 0, propertyList("")},
        ToolResult{Outcome::Signalled, 15, propertyList("")}}) {
    runner.runs.clear();
    runner.results = {exited(""), result};
    EXPECT_EQ(failure(), expected);
  }
}

TEST_F(AdvancedCollectorTest, ProbeThatIsStillRunningFailsToo) {
  runner.results = {{Outcome::StillRunning, 0, {}}};
  EXPECT_EQ(failure(), MonitorError("Monitor", 1, "macOS could not collect the optional hardware readings."));
}

TEST_F(AdvancedCollectorTest, OutputOverTheCapIsAReadTooLargeAndIsNeverParsed) {
  runner.results = {exited(""), {Outcome::OutputTooLarge, 0, propertyList("")}};
  const MonitorError error = failure();
  EXPECT_EQ(error.domain(), MonitorError::kCocoaDomain);
  EXPECT_EQ(error.code(), MonitorError::kReadTooLarge);
}

TEST_F(AdvancedCollectorTest, OutputThatIsNoPropertyListFailsWithTheParsersError) {
  script("", "");
  const MonitorError error = failure();
  EXPECT_EQ(error.code(), MonitorError::kPropertyListReadCorrupt);
}

TEST_F(AdvancedCollectorTest, TasksOfTheOwnersProcessesAreAttributed) {
  processes.add({812, kStart}, "/usr/bin/tool", 501);
  processes.add({900, kStart}, "/usr/bin/other", 502);
  script("", propertyList("<key>tasks</key><array>" + task(812) + task(900) + task(77) + "</array>"));
  const auto result = sample(501);
  ASSERT_EQ(result.processes.size(), 1U);
  EXPECT_EQ(result.processes[0].key, (ProcessKey{812, kStart}));
}

TEST_F(AdvancedCollectorTest, ProcessThatEndedDuringTheRunIsMissing) {
  processes.add({812, kStart}, "/usr/bin/tool", 501);
  script("", propertyList("<key>tasks</key><array>" + task(812) + "</array>"));
  runner.duringRun = [this](const ToolRun& run) {
    if (run.arguments.size() == 10) processes.end(812);
  };
  EXPECT_TRUE(sample().processes.empty());
}

TEST_F(AdvancedCollectorTest, PidThatWasReusedDuringTheRunIsMissing) {
  processes.add({812, kStart}, "/usr/bin/tool", 501);
  script("", propertyList("<key>tasks</key><array>" + task(812) + "</array>"));
  runner.duringRun = [this](const ToolRun&) { processes.add({812, kStart + 1}, "/usr/bin/next", 501); };
  EXPECT_TRUE(sample().processes.empty());
}

TEST_F(AdvancedCollectorTest, ProcessThatChangedItsOwnerDuringTheRunIsMissing) {
  processes.add({812, kStart}, "/usr/bin/tool", 501);
  script("", propertyList("<key>tasks</key><array>" + task(812) + "</array>"));
  runner.duringRun = [this](const ToolRun&) { processes.add({812, kStart}, "/usr/bin/tool", 502); };
  EXPECT_TRUE(sample().processes.empty());
}

TEST_F(AdvancedCollectorTest, ProcessThatBeganDuringTheRunIsMissing) {
  script("", propertyList("<key>tasks</key><array>" + task(812) + "</array>"));
  runner.duringRun = [this](const ToolRun&) { processes.add({812, kStart}, "/usr/bin/tool", 501); };
  EXPECT_TRUE(sample().processes.empty());
}

TEST_F(AdvancedCollectorTest, DetailsAreThoseOfThePlatform) {
  script("", propertyList("<key>gpu</key><dict><key>idle_ratio</key><real>0.5</real></dict>"));
  const auto result =
      AdvancedCollector::sample({runner, processes, wallClock, "/opt/tool", kLinuxAdvancedDetails}, 501);
  EXPECT_EQ(result.readings.at(MetricID::Gpu).detail, std::string(kLinuxAdvancedDetails.gpu));
}

TEST_F(AdvancedCollectorTest, SampleIsDatedAfterTheRun) {
  script("", propertyList(""));
  runner.duringRun = [this](const ToolRun&) { time.advance(1.0); };
  const Date before = wallClock.now();
  EXPECT_EQ(sample().timestamp, before.addingSeconds(2.0));
}

}  // namespace
}  // namespace monitor
