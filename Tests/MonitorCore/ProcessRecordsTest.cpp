// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "MonitorCore/AccessoryBattery.h"
#include "MonitorCore/AppUsage.h"
#include "MonitorCore/ProcessActionPolicy.h"
#include "MonitorCore/ProcessSample.h"

namespace monitor {
namespace {

TEST(ProcessSampleTest, InitialiserArgumentsReachTheFieldsTheyAreNamedAfter) {
  const ProcessSample sample({812, 5000}, 1, "Editor", "com.example.editor", 12.5, 4096, 501,
                             "/usr/bin/editor", 1.0, 2.0, 3.0, 4.0, 5.0, "/src/app", {8080, 443});
  EXPECT_EQ(sample.key, (ProcessKey{812, 5000}));
  EXPECT_EQ(sample.id(), sample.key);
  EXPECT_EQ(sample.parentPID, 1);
  EXPECT_EQ(sample.owner, 501U);
  EXPECT_EQ(sample.name, "Editor");
  EXPECT_EQ(sample.bundleID, "com.example.editor");
  EXPECT_EQ(sample.executable, "/usr/bin/editor");
  EXPECT_EQ(sample.cpu, 12.5);
  EXPECT_EQ(sample.memory, 4096U);
  EXPECT_EQ(sample.diskRead, 1.0);
  EXPECT_EQ(sample.diskWrite, 2.0);
  EXPECT_EQ(sample.download, 3.0);
  EXPECT_EQ(sample.upload, 4.0);
  EXPECT_EQ(sample.energy, 5.0);
  EXPECT_EQ(sample.directory, "/src/app");
  EXPECT_EQ(sample.ports, (std::vector<std::int64_t>{8080, 443}));
}

TEST(AppUsageTest, InitialiserTakesTheFieldsInDeclarationOrder) {
  const AppUsage app{"id", "name", "bundle", {ProcessSample{}}, 1.0, 2, 3.0, 4.0, 5.0, 6.0, 7.0};
  EXPECT_EQ(app.bundleID, "bundle");
  EXPECT_EQ(app.processes.size(), 1U);
  EXPECT_EQ(app.value(MetricID::Cpu), 1.0);
  EXPECT_EQ(app.value(MetricID::MemoryUsed), 2.0);
  EXPECT_EQ(app.value(MetricID::DiskRead), 3.0);
  EXPECT_EQ(app.value(MetricID::DiskWrite), 4.0);
  EXPECT_EQ(app.value(MetricID::Download), 5.0);
  EXPECT_EQ(app.value(MetricID::Upload), 6.0);
  EXPECT_EQ(app.value(MetricID::EnergyImpact), 7.0);
}

TEST(AppUsageTest, MemoryIsNeverAbsent) {
  AppUsage app;
  app.memory = 3;
  EXPECT_EQ(app.value(MetricID::MemoryUsed), 3.0);
  EXPECT_EQ(app.value(MetricID::Cpu), std::nullopt);
  EXPECT_EQ(app.value(MetricID::Gpu), std::nullopt);
}

TEST(AppUsageTest, ExactlySevenMetricsHaveAFigure) {
  const AppUsage app{"id", "name", "bundle", {}, 1.0, 2, 3.0, 4.0, 5.0, 6.0, 7.0};
  std::vector<MetricID> carried;
  for (const MetricID metric : kAllMetrics) {
    if (app.value(metric)) carried.push_back(metric);
  }
  EXPECT_EQ(carried, (std::vector<MetricID>{MetricID::Cpu, MetricID::MemoryUsed, MetricID::DiskRead,
                                            MetricID::DiskWrite, MetricID::Download, MetricID::Upload,
                                            MetricID::EnergyImpact}));
}

TEST(AccessoryBatteryTest, KeepsWhatItWasMadeWith) {
  const AccessoryBattery battery("mouse", "Mouse", 81.0);
  EXPECT_EQ(battery.id(), "mouse");
  EXPECT_EQ(battery.name(), "Mouse");
  EXPECT_EQ(battery.percent(), 81.0);
}

// One call of the rule with everything in order, to be broken one condition at a time.
struct StopQuestion {
  ProcessKey expected{2, 7};
  std::optional<ProcessKey> current = ProcessKey{2, 7};
  std::uint32_t owner = 501;
  std::uint32_t currentUser = 501;
  std::int32_t selfPID = 99;

  bool answer() const { return ProcessActionPolicy::canStop(expected, current, owner, currentUser, selfPID); }
};

TEST(ProcessActionPolicyTest, OwnLiveProcessCanBeStopped) {
  EXPECT_TRUE(StopQuestion{}.answer());
}

TEST(ProcessActionPolicyTest, PidsUpToOneAreNeverStopped) {
  for (const std::int32_t pid : {1, 0, -1}) {
    EXPECT_FALSE((StopQuestion{.expected = {pid, 7}, .current = ProcessKey{pid, 7}}.answer()));
  }
}

TEST(ProcessActionPolicyTest, ReusedPidIsNotStopped) {
  EXPECT_FALSE(StopQuestion{.current = (ProcessKey{2, 8})}.answer());
  EXPECT_FALSE(StopQuestion{.current = (ProcessKey{3, 7})}.answer());
}

TEST(ProcessActionPolicyTest, EndedProcessIsNotStopped) {
  EXPECT_FALSE(StopQuestion{.current = std::nullopt}.answer());
}

TEST(ProcessActionPolicyTest, SuperuserProcessIsNotStoppedEvenByTheSuperuser) {
  EXPECT_FALSE((StopQuestion{.owner = 0, .currentUser = 0}.answer()));
}

TEST(ProcessActionPolicyTest, AnotherUsersProcessIsNotStopped) {
  EXPECT_FALSE(StopQuestion{.owner = 502}.answer());
  EXPECT_FALSE(StopQuestion{.currentUser = 0}.answer());
}

TEST(ProcessActionPolicyTest, ProgramNeverStopsItself) {
  EXPECT_FALSE(StopQuestion{.selfPID = 2}.answer());
}

}  // namespace
}  // namespace monitor
