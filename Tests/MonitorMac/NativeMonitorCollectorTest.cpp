// SPDX-License-Identifier: MIT
#include "MonitorMac/NativeMonitorCollector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "MonitorCore/AppAggregator.h"
#include "Tests/Fakes/FakeApplicationBundles.h"
#include "Tests/Fakes/FakeHost.h"
#include "Tests/Fakes/FakeProcessTable.h"
#include "Tests/Fakes/FakeSystemInformation.h"
#include "Tests/Fakes/VirtualTime.h"

namespace monitor {
namespace {

constexpr std::uint64_t kStart = 1'731'700'000'000'000;

class NativeMonitorCollectorTest : public ::testing::Test {
 protected:
  MonitorSnapshot sample(bool includeProjects = false) { return collector.sample(includeProjects); }
  MonitorSnapshot sampleAfter(double seconds, bool includeProjects = false) {
    time.advance(seconds);
    return collector.sample(includeProjects);
  }
  fakes::FakeProcessTable::Process& addProcess(std::int32_t pid, std::string executable = "/usr/bin/tool") {
    auto& process = processes.add({pid, kStart}, std::move(executable));
    process.usage = ProcessUsage{0, 1'000, 0, 0};
    return process;
  }
  static const MetricReading& reading(const MonitorSnapshot& snapshot, MetricID metric) {
    return snapshot.readings.at(metric);
  }
  static void expectReading(const MonitorSnapshot& snapshot, MetricID metric, double value, MetricUnit unit,
                            const std::string& source, const std::optional<std::string>& detail) {
    ASSERT_TRUE(snapshot.readings.contains(metric)) << rawValue(metric);
    EXPECT_EQ(reading(snapshot, metric),
              MetricReading(value, unit, source, MetricState::Available, snapshot.timestamp, detail))
        << rawValue(metric);
  }

  fakes::VirtualTime time;
  fakes::FakeClock uptime{time};
  fakes::FakeWallClock wallClock{time};
  fakes::FakeSystemInformation system;
  fakes::FakeHostStatistics host;
  fakes::FakeNetworkInterfaces network;
  fakes::FakeBlockStorage storage;
  fakes::FakePowerSources power;
  fakes::FakeAccessories accessories;
  fakes::FakeProcessTable processes;
  fakes::FakeApplicationBundles bundles;
  NativeMonitorCollector collector{{uptime, wallClock, system, host, network, storage, power, accessories,
                                    processes, bundles, kMacSourceTexts}};
};

TEST_F(NativeMonitorCollectorTest, FirstSampleHasNoRatesAndIntervalZero) {
  const auto first = sample();
  EXPECT_EQ(first.interval, 0.0);
  EXPECT_EQ(first.uptime, 1000.0);
  for (const MetricID metric :
       {MetricID::Cpu, MetricID::Download, MetricID::Upload, MetricID::DiskRead, MetricID::DiskWrite}) {
    EXPECT_FALSE(reading(first, metric).value);
    EXPECT_EQ(reading(first, metric).state, MetricState::WarmingUp);
  }
  for (const MetricID metric : {MetricID::CpuUser, MetricID::CpuSystem, MetricID::CpuIdle}) {
    EXPECT_FALSE(first.readings.contains(metric));
  }
  EXPECT_FALSE(first.advancedTimestamp);
  EXPECT_EQ(first.advancedInterval, 1.0);
}

TEST_F(NativeMonitorCollectorTest, EveryReadingIsStampedWithTheStartOfTheCall) {
  const auto first = sample();
  EXPECT_EQ(first.timestamp, wallClock.now());
  for (const auto& [metric, value] : first.readings) EXPECT_EQ(value.timestamp, first.timestamp);
}

TEST_F(NativeMonitorCollectorTest, CpuSharesComeFromTheTicksBetweenTwoSamples) {
  (void)sample();
  host.ticks = CpuTicks{110, 120, 160, 110};
  const auto second = sampleAfter(2.0);
  expectReading(second, MetricID::Cpu, 40.0, MetricUnit::Percent, "Mach host CPU counters",
                "Across all logical cores");
  expectReading(second, MetricID::CpuUser, 20.0, MetricUnit::Percent, "Mach host CPU counters", std::nullopt);
  expectReading(second, MetricID::CpuSystem, 20.0, MetricUnit::Percent, "Mach host CPU counters",
                std::nullopt);
  expectReading(second, MetricID::CpuIdle, 60.0, MetricUnit::Percent, "Mach host CPU counters", std::nullopt);
  EXPECT_EQ(second.interval, 2.0);
}

TEST_F(NativeMonitorCollectorTest, CountersThatWentBackwardsCostOneSampleOnly) {
  (void)sample();
  host.ticks = CpuTicks{10, 10, 10, 10};
  EXPECT_FALSE(reading(sampleAfter(1.0), MetricID::Cpu).value);
  host.ticks = CpuTicks{20, 10, 20, 10};
  EXPECT_EQ(reading(sampleAfter(1.0), MetricID::Cpu).value, 50.0);
}

TEST_F(NativeMonitorCollectorTest, MissingCpuCountersAreUnsupportedAndKeepThePreviousOnes) {
  (void)sample();
  host.ticks.reset();
  const auto failed = sampleAfter(1.0);
  EXPECT_EQ(reading(failed, MetricID::Cpu),
            MetricReading(std::nullopt, MetricUnit::Percent, "Mach", MetricState::Unsupported,
                          failed.timestamp, "macOS did not return CPU counters"));
  EXPECT_FALSE(failed.readings.contains(MetricID::CpuUser));
  host.ticks = CpuTicks{150, 100, 150, 100};
  EXPECT_EQ(reading(sampleAfter(1.0), MetricID::Cpu).value, 50.0);
}

TEST_F(NativeMonitorCollectorTest, MemoryReadingsCarryTheirSources) {
  const auto first = sample();
  expectReading(first, MetricID::MemoryTotal, 17'179'869'184.0, MetricUnit::Bytes, "Physical memory",
                std::nullopt);
  expectReading(first, MetricID::MemoryUsed, 8'000.0, MetricUnit::Bytes, "Mach VM counters",
                "Internal, wired and compressed pages, excluding purgeable pages");
  expectReading(first, MetricID::MemoryWired, 2'000.0, MetricUnit::Bytes, "Mach wired pages", std::nullopt);
  expectReading(first, MetricID::MemoryCompressed, 1'000.0, MetricUnit::Bytes, "Mach compressor pages",
                std::nullopt);
}

TEST_F(NativeMonitorCollectorTest, FailedMemoryReadLeavesItsThreeReadingsOut) {
  host.report.reset();
  const auto first = sample();
  EXPECT_TRUE(first.readings.contains(MetricID::MemoryTotal));
  for (const MetricID metric : {MetricID::MemoryUsed, MetricID::MemoryWired, MetricID::MemoryCompressed}) {
    EXPECT_FALSE(first.readings.contains(metric));
  }
}

TEST_F(NativeMonitorCollectorTest, MemoryFiguresThatAreNotKnownAreAbsentNotZero) {
  host.report = MemoryReport{5'000, std::nullopt, std::nullopt};
  const auto first = sample();
  EXPECT_TRUE(first.readings.contains(MetricID::MemoryUsed));
  EXPECT_FALSE(first.readings.contains(MetricID::MemoryWired));
  EXPECT_FALSE(first.readings.contains(MetricID::MemoryCompressed));
}

TEST_F(NativeMonitorCollectorTest, PressureLevelsOneTwoThreeAndFour) {
  const std::pair<std::int32_t, double> levels[] = {{1, 0.0}, {2, 1.0}, {3, 1.0}, {4, 2.0}};
  for (const auto& [level, expected] : levels) {
    host.pressure = level;
    expectReading(sample(), MetricID::MemoryPressure, expected, MetricUnit::Level, "macOS memory pressure",
                  std::nullopt);
  }
}

TEST_F(NativeMonitorCollectorTest, PressureThatCannotBeReadIsAbsent) {
  host.pressure.reset();
  EXPECT_FALSE(sample().readings.contains(MetricID::MemoryPressure));
}

TEST_F(NativeMonitorCollectorTest, HomeVolumeHasTotalAndFree) {
  const auto first = sample();
  expectReading(first, MetricID::DiskTotal, 500'000.0, MetricUnit::Bytes, "Home volume capacity",
                std::nullopt);
  expectReading(first, MetricID::DiskFree, 200'000.0, MetricUnit::Bytes, "Home volume available space",
                std::nullopt);
}

TEST_F(NativeMonitorCollectorTest, HomeVolumeThatFailsMakesNeitherReading) {
  host.volume.reset();
  const auto first = sample();
  EXPECT_FALSE(first.readings.contains(MetricID::DiskTotal));
  EXPECT_FALSE(first.readings.contains(MetricID::DiskFree));
}

TEST_F(NativeMonitorCollectorTest, HomeVolumeWithOneValueWarmsUpForTheOther) {
  host.volume = VolumeCapacity{500'000, std::nullopt};
  const auto first = sample();
  EXPECT_EQ(reading(first, MetricID::DiskTotal).value, 500'000.0);
  EXPECT_EQ(reading(first, MetricID::DiskFree).state, MetricState::WarmingUp);
}

TEST_F(NativeMonitorCollectorTest, NetworkRatesSumThePhysicalInterfaces) {
  network.physical = {"en0", "en1"};
  network.rows = {{"en0", 0, 0, true}, {"en1", 0, 0, true}, {"utun0", 0, 0, true}};
  (void)sample();
  network.rows = {{"en0", 100, 20, true}, {"en1", 50, 10, true}, {"utun0", 9'000, 9'000, true}};
  const auto second = sampleAfter(1.0);
  expectReading(second, MetricID::Download, 150.0, MetricUnit::BytesPerSecond, "Physical interfaces",
                "External interface traffic; excludes loopback and duplicate VPN interfaces");
  expectReading(second, MetricID::Upload, 30.0, MetricUnit::BytesPerSecond, "Physical interfaces",
                std::nullopt);
}

TEST_F(NativeMonitorCollectorTest, PhysicalInterfaceThatIsDownDoesNotCount) {
  network.rows = {{"en0", 0, 0, false}};
  (void)sample();
  network.rows = {{"en0", 100, 100, false}};
  EXPECT_FALSE(reading(sampleAfter(1.0), MetricID::Download).value);
}

TEST_F(NativeMonitorCollectorTest, InterfacesAreRefreshedAfterMoreThanThirtySeconds) {
  (void)sample();
  EXPECT_EQ(network.refreshes, 1);
  (void)sampleAfter(30.0);
  EXPECT_EQ(network.refreshes, 1);
  (void)sampleAfter(0.5);
  EXPECT_EQ(network.refreshes, 2);
}

TEST_F(NativeMonitorCollectorTest, AccessoriesAreRescannedAfterAtLeastThirtySeconds) {
  (void)sample();
  EXPECT_EQ(accessories.scans, 1);
  (void)sampleAfter(29.5);
  EXPECT_EQ(accessories.scans, 1);
  (void)sampleAfter(0.5);
  EXPECT_EQ(accessories.scans, 2);
}

TEST_F(NativeMonitorCollectorTest, DiskRatesSumTheDrivesWithBothCounters) {
  storage.rows = {{"1", 0, 0}, {"2", 0, 0}, {"3", 0, std::nullopt}};
  (void)sample();
  storage.rows = {{"1", 1'000, 10}, {"2", 500, 20}, {"3", 70'000, std::nullopt}};
  const auto second = sampleAfter(1.0);
  expectReading(second, MetricID::DiskRead, 1'500.0, MetricUnit::BytesPerSecond, "Block storage drivers",
                "Activity across physical drives");
  expectReading(second, MetricID::DiskWrite, 30.0, MetricUnit::BytesPerSecond, "Block storage drivers",
                std::nullopt);
}

TEST_F(NativeMonitorCollectorTest, BatteryChargeMinutesAndState) {
  power.list = {{true, 45.0, 90.0, 125.0, "Battery Power"}};
  const auto first = sample();
  expectReading(first, MetricID::Battery, 50.0, MetricUnit::Percent, "IOPowerSources", "Battery Power");
  expectReading(first, MetricID::BatteryMinutes, 125.0, MetricUnit::Minutes, "macOS estimate", std::nullopt);
}

TEST_F(NativeMonitorCollectorTest, BatteryMinutesOfZeroOrLessAreNone) {
  power.list = {{true, 45.0, 90.0, 0.0, std::nullopt}};
  EXPECT_FALSE(sample().readings.contains(MetricID::BatteryMinutes));
  power.list = {{true, 45.0, 90.0, -1.0, std::nullopt}};
  EXPECT_FALSE(sample().readings.contains(MetricID::BatteryMinutes));
}

TEST_F(NativeMonitorCollectorTest, LaterInternalBatteryReplacesAnEarlierOne) {
  power.list = {{true, 10.0, 100.0, std::nullopt, std::nullopt},
                {true, 20.0, 100.0, std::nullopt, std::nullopt}};
  EXPECT_EQ(reading(sample(), MetricID::Battery).value, 20.0);
}

TEST_F(NativeMonitorCollectorTest, OtherPowerSourcesAreNotTheBattery) {
  power.list = {{false, 10.0, 100.0, 5.0, std::nullopt}};
  const auto first = sample();
  EXPECT_FALSE(first.readings.contains(MetricID::Battery));
  EXPECT_FALSE(first.readings.contains(MetricID::BatteryMinutes));
}

TEST_F(NativeMonitorCollectorTest, HealthIsCappedAtAHundred) {
  power.batteryWear = BatteryWear{5'200, 5'000};
  expectReading(sample(), MetricID::BatteryHealth, 100.0, MetricUnit::Percent, "Battery capacity properties",
                "Maximum raw capacity relative to design capacity");
}

TEST_F(NativeMonitorCollectorTest, DesignCapacityOfAHundredOrLessGivesNoHealth) {
  power.batteryWear = BatteryWear{5'200, 100};
  EXPECT_FALSE(sample().readings.contains(MetricID::BatteryHealth));
}

TEST_F(NativeMonitorCollectorTest, AccessoryPercentagesFromZeroToAHundredAreKept) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  accessories.list = {{"1", "Mouse", 100.0}, {"2", "Keyboard", 100.5}, {"3", "Pen", -1.0},
                      {"4", "Ball", 0.0},    {"5", "Ghost", nan},      {"6", "Hub", std::nullopt}};
  const auto first = sample();
  ASSERT_EQ(first.accessories.size(), 2U);
  EXPECT_EQ(first.accessories[0], AccessoryBattery("1", "Mouse", 100.0));
  EXPECT_EQ(first.accessories[1], AccessoryBattery("4", "Ball", 0.0));
}

TEST_F(NativeMonitorCollectorTest, AccessoryWithoutAProductNameIsAConnectedAccessory) {
  accessories.list = {{"7", std::nullopt, 55.0}};
  EXPECT_EQ(sample().accessories.at(0), AccessoryBattery("7", "Connected accessory", 55.0));
}

TEST_F(NativeMonitorCollectorTest, ProcessRatesNeedTwoSamples) {
  auto& process = addProcess(812);
  const auto first = sample();
  ASSERT_EQ(first.apps.size(), 1U);
  EXPECT_FALSE(first.apps[0].processes[0].cpu);
  process.usage = ProcessUsage{500'000'000, 2'000, 4'096, 1'024};
  const auto second = sampleAfter(1.0);
  const ProcessSample& row = second.apps.at(0).processes.at(0);
  EXPECT_DOUBLE_EQ(*row.cpu, 50.0);
  EXPECT_EQ(row.memory, 2'000U);
  EXPECT_EQ(row.diskRead, 4'096.0);
  EXPECT_EQ(row.diskWrite, 1'024.0);
  EXPECT_FALSE(row.download);
  EXPECT_FALSE(row.upload);
  EXPECT_FALSE(row.energy);
}

TEST_F(NativeMonitorCollectorTest, CpuTimeIsScaledByThePlatformsUnit) {
  processes.cpuTimeUnit = 125.0 / 3.0;
  auto& process = addProcess(812);
  (void)sample();
  process.usage->cpuTime = 24'000'000;
  EXPECT_DOUBLE_EQ(*sampleAfter(1.0).apps.at(0).processes.at(0).cpu, 100.0);
}

TEST_F(NativeMonitorCollectorTest, RefusedDiskCountersLeaveTheTwoFieldsAbsent) {
  addProcess(812).usage = ProcessUsage{0, 1, std::nullopt, std::nullopt};
  (void)sample();
  const auto second = sampleAfter(1.0);
  EXPECT_EQ(second.restrictedProcessCount, 0);
  EXPECT_FALSE(second.apps.at(0).processes.at(0).diskRead);
  EXPECT_FALSE(second.apps.at(0).processes.at(0).diskWrite);
}

TEST_F(NativeMonitorCollectorTest, ProcessOfAnotherUserNeitherAppearsNorCounts) {
  auto& process = processes.add({900, kStart}, "/usr/bin/other", 502);
  process.usage = ProcessUsage{0, 1, 0, 0};
  const auto first = sample();
  EXPECT_TRUE(first.apps.empty());
  EXPECT_EQ(first.restrictedProcessCount, 0);
}

TEST_F(NativeMonitorCollectorTest, OwnProcessThatCannotBeReadIsRestricted) {
  addProcess(812).usage.reset();
  const auto first = sample();
  EXPECT_TRUE(first.apps.empty());
  EXPECT_EQ(first.restrictedProcessCount, 1);
}

TEST_F(NativeMonitorCollectorTest, PidsBelowOneAreSkipped) {
  addProcess(0);
  addProcess(-5);
  EXPECT_TRUE(sample().apps.empty());
}

TEST_F(NativeMonitorCollectorTest, ReusedPidStartsItsRatesAnew) {
  addProcess(812).usage->cpuTime = 1'000;
  (void)sample();
  auto& next = processes.add({812, kStart + 7}, "/usr/bin/next");
  next.usage = ProcessUsage{5'000'000, 1, 0, 0};
  EXPECT_FALSE(sampleAfter(1.0).apps.at(0).processes.at(0).cpu);
}

TEST_F(NativeMonitorCollectorTest, ProcessThatWasAwayForAPassLosesItsHistory) {
  auto& process = addProcess(812);
  (void)sample();
  const auto kept = process;
  processes.end(812);
  (void)sampleAfter(1.0);
  processes.processes[812] = kept;
  EXPECT_FALSE(sampleAfter(1.0).apps.at(0).processes.at(0).cpu);
  EXPECT_TRUE(sampleAfter(1.0).apps.at(0).processes.at(0).cpu);
}

TEST_F(NativeMonitorCollectorTest, ProcessThatCouldNotBeReadForAPassLosesItsHistory) {
  auto& process = addProcess(812);
  (void)sample();
  process.usage.reset();
  EXPECT_EQ(sampleAfter(1.0).restrictedProcessCount, 1);
  process.usage = ProcessUsage{500'000'000, 1'000, 0, 0};
  EXPECT_FALSE(sampleAfter(1.0).apps.at(0).processes.at(0).cpu);
  EXPECT_TRUE(sampleAfter(1.0).apps.at(0).processes.at(0).cpu);
}

TEST_F(NativeMonitorCollectorTest, ListThatCannotBeReadGivesNoProcessesAndNoRestrictedOnes) {
  addProcess(812);
  addProcess(900).usage.reset();
  EXPECT_EQ(sample().restrictedProcessCount, 1);
  processes.arrange = [](std::vector<std::int32_t>& pids) { pids.clear(); };
  const auto failed = sampleAfter(1.0);
  EXPECT_TRUE(failed.apps.empty());
  EXPECT_EQ(failed.restrictedProcessCount, 0);
}

TEST_F(NativeMonitorCollectorTest, RatesAreTheProcessesOwnInWhateverOrderTheyCome) {
  constexpr std::int32_t kPids = 24;
  constexpr int kPasses = 400;
  std::mt19937 random(20);
  const auto below = [&random](std::uint32_t end) { return static_cast<std::uint32_t>(random() % end); };
  processes.arrange = [&below](std::vector<std::int32_t>& pids) {
    const std::uint32_t way = below(4);
    if (way == 0) std::reverse(pids.begin(), pids.end());
    if (way == 1)
      std::rotate(pids.begin(), pids.begin() + static_cast<std::ptrdiff_t>(pids.size() / 2), pids.end());
    if (way == 2) {
      const std::vector<std::int32_t> once = pids;
      pids.insert(pids.end(), once.begin(), once.end());
    }
  };
  std::map<std::int32_t, std::uint64_t> before;  // of those that the last pass saw
  for (int pass = 0; pass < kPasses; ++pass) {
    for (std::int32_t pid = 1; pid <= kPids; ++pid) {
      if (!processes.processes.contains(pid)) {
        if (below(4) == 0) addProcess(pid);
      } else if (below(6) == 0) {
        processes.end(pid);
      }
    }
    for (auto& [pid, process] : processes.processes) process.usage->cpuTime += below(1'000) * 1'000'000ULL;
    const auto rows = AppAggregator::processesOf(sampleAfter(1.0).apps);
    std::map<std::int32_t, std::uint64_t> seen;
    for (const ProcessSample& row : rows) {
      const std::uint64_t total = processes.processes.at(row.key.pid).usage->cpuTime;
      if (!seen.emplace(row.key.pid, total).second) continue;  // listed twice: the first one is rated
      const auto earlier = before.find(row.key.pid);
      ASSERT_EQ(row.cpu.has_value(), earlier != before.end()) << "pass " << pass;
      if (!row.cpu) continue;
      ASSERT_DOUBLE_EQ(*row.cpu, static_cast<double>(total - earlier->second) / 1e7) << "pass " << pass;
    }
    ASSERT_EQ(seen.size(), processes.processes.size()) << "pass " << pass;
    before = std::move(seen);
  }
}

TEST_F(NativeMonitorCollectorTest, NameComesFromTheBundleThenTheFile) {
  addProcess(1, "/Applications/Player.app/Contents/MacOS/player");
  addProcess(2, "/Applications/Plain.app/Contents/MacOS/plain");
  addProcess(3, "/Applications/Bare.app/Contents/MacOS/bare");
  addProcess(4, "/usr/bin/tool");
  bundles.folders["/Applications/Player.app"] = {"com.example.player", "Player!", "Player", std::nullopt};
  bundles.folders["/Applications/Plain.app"] = {"com.example.plain", std::nullopt, "Plain", std::nullopt};
  bundles.folders["/Applications/Bare.app"] = {"com.example.bare", std::nullopt, std::nullopt, std::nullopt};
  std::map<std::int32_t, std::pair<std::string, std::optional<std::string>>> seen;
  for (const AppUsage& app : sample().apps) {
    for (const ProcessSample& process : app.processes)
      seen[process.key.pid] = {process.name, process.bundleID};
  }
  using Identity = std::pair<std::string, std::optional<std::string>>;
  EXPECT_EQ(seen[1], Identity("Player!", "com.example.player"));
  EXPECT_EQ(seen[2], Identity("Plain", "com.example.plain"));
  EXPECT_EQ(seen[3], Identity("bare", "com.example.bare"));
  EXPECT_EQ(seen[4], Identity("tool", std::nullopt));
}

TEST_F(NativeMonitorCollectorTest, NameThatIsNoPathIsKeptWhole) {
  addProcess(30, "kworker/0:1");
  EXPECT_EQ(sample().apps.at(0).name, "kworker/0:1");
}

TEST_F(NativeMonitorCollectorTest, EmptyNameBecomesProcessAndPid) {
  addProcess(1234, "");
  EXPECT_EQ(sample().apps.at(0).processes.at(0).name, "Process 1234");
}

TEST_F(NativeMonitorCollectorTest, IdentitiesAreLookedUpOncePerKey) {
  addProcess(1, "/usr/bin/tool");
  addProcess(2, "/usr/bin/tool");
  (void)sample();
  (void)sampleAfter(1.0);
  EXPECT_EQ(bundles.lookups, 1);
}

TEST_F(NativeMonitorCollectorTest, IdentityThatCannotHaveChangedIsNotAskedForAgain) {
  addProcess(812);
  (void)sample();
  const int reads = processes.executableReads;
  processes.identitiesMayChange = false;
  processes.processes.at(812).executable = "/usr/bin/other";
  EXPECT_EQ(sampleAfter(1.0).apps.at(0).name, "tool");
  EXPECT_EQ(processes.executableReads, reads);
  processes.identitiesMayChange = true;
  EXPECT_EQ(sampleAfter(1.0).apps.at(0).name, "other");
}

TEST_F(NativeMonitorCollectorTest, ProcessThatIsSeenForTheFirstTimeIsAlwaysIdentified) {
  processes.identitiesMayChange = false;
  addProcess(812);
  EXPECT_EQ(sample().apps.at(0).name, "tool");
  collector.reset();
  EXPECT_EQ(sampleAfter(1.0).apps.at(0).name, "tool");
  processes.add({812, kStart + 7}, "/usr/bin/next").usage = ProcessUsage{0, 1'000, 0, 0};
  EXPECT_EQ(sampleAfter(1.0).apps.at(0).name, "next");
}

TEST_F(NativeMonitorCollectorTest, TwoProgramsOfOneInterpreterStayTwo) {
  addProcess(1, "/usr/bin/interpreter");
  addProcess(2, "/usr/bin/interpreter");
  bundles.processes[1] = {"org.example.One", "One", std::nullopt, std::nullopt};
  bundles.processes[2] = {"org.example.Two", "Two", std::nullopt, std::nullopt};
  EXPECT_EQ(sample().apps.size(), 2U);
}

TEST_F(NativeMonitorCollectorTest, IdentityCacheIsEmptiedAboveItsCap) {
  for (std::int32_t pid = 1; pid <= 4'096; ++pid) addProcess(pid, "/bin/" + std::to_string(pid));
  (void)sample();
  (void)sampleAfter(1.0);
  EXPECT_EQ(bundles.lookups, 4'096);
  addProcess(5'000, "/bin/5000");
  (void)sampleAfter(1.0);
  EXPECT_EQ(bundles.lookups, 4'097);
  (void)sampleAfter(1.0);
  EXPECT_EQ(bundles.lookups, 2 * 4'097);
}

TEST_F(NativeMonitorCollectorTest, PortsAndFoldersAreReadOnlyWhenAsked) {
  auto& process = addProcess(812);
  process.ports = {80, 8'080};
  process.directory = "/src/app";
  EXPECT_TRUE(sample().apps.at(0).processes.at(0).ports.empty());
  EXPECT_FALSE(sample().apps.at(0).processes.at(0).directory);
  const auto row = sample(true).apps.at(0).processes.at(0);
  EXPECT_EQ(row.ports, (std::vector<std::int64_t>{80, 8'080}));
  EXPECT_EQ(row.directory, "/src/app");
}

TEST_F(NativeMonitorCollectorTest, FolderOfAProcessThatDoesNotListenIsNotRead) {
  addProcess(812).directory = "/src/app";
  EXPECT_FALSE(sample(true).apps.at(0).processes.at(0).directory);
}

TEST_F(NativeMonitorCollectorTest, SampleAfterALongGapResetsFirst) {
  auto& process = addProcess(812);
  (void)sample();
  host.ticks = CpuTicks{200, 200, 200, 200};
  network.rows = {{"en0", 9'000, 9'000, true}};
  process.usage->cpuTime = 1'000'000'000;
  const auto second = sampleAfter(120.0);
  EXPECT_EQ(second.interval, 0.0);
  EXPECT_FALSE(reading(second, MetricID::Cpu).value);
  EXPECT_FALSE(reading(second, MetricID::Download).value);
  EXPECT_FALSE(second.apps.at(0).processes.at(0).cpu);
}

TEST_F(NativeMonitorCollectorTest, GapOfExactlyNinetySecondsIsRated) {
  (void)sample();
  host.ticks = CpuTicks{200, 100, 200, 100};
  const auto second = sampleAfter(90.0);
  EXPECT_EQ(second.interval, 90.0);
  EXPECT_EQ(reading(second, MetricID::Cpu).value, 50.0);
}

TEST_F(NativeMonitorCollectorTest, GapOfMoreThanNinetySecondsIsNot) {
  (void)sample();
  host.ticks = CpuTicks{200, 100, 200, 100};
  const auto second = sampleAfter(90.25);
  EXPECT_EQ(second.interval, 0.0);
  EXPECT_FALSE(reading(second, MetricID::Cpu).value);
}

TEST_F(NativeMonitorCollectorTest, UptimeThatFellResetsToo) {
  (void)sample();
  uptime.offset -= 10.0;
  host.ticks = CpuTicks{200, 100, 200, 100};
  const auto second = sampleAfter(1.0);
  EXPECT_EQ(second.interval, 0.0);
  EXPECT_FALSE(reading(second, MetricID::Cpu).value);
}

TEST_F(NativeMonitorCollectorTest, WallClockStepsChangeNoRate) {
  (void)sample();
  wallClock.base = wallClock.base.addingSeconds(3'600.0);
  host.ticks = CpuTicks{200, 100, 200, 100};
  const auto second = sampleAfter(1.0);
  EXPECT_EQ(second.interval, 1.0);
  EXPECT_EQ(reading(second, MetricID::Cpu).value, 50.0);
}

TEST_F(NativeMonitorCollectorTest, ResetForgetsRatesAndKeepsFacts) {
  addProcess(812);
  accessories.list = {{"1", "Mouse", 50.0}};
  (void)sample();
  collector.reset();
  host.ticks = CpuTicks{200, 100, 200, 100};
  const auto second = sampleAfter(1.0);
  EXPECT_EQ(second.interval, 0.0);
  EXPECT_FALSE(reading(second, MetricID::Cpu).value);
  EXPECT_FALSE(second.apps.at(0).processes.at(0).cpu);
  EXPECT_EQ(bundles.lookups, 1);  // names are facts
  EXPECT_EQ(network.refreshes, 2);
  EXPECT_EQ(accessories.scans, 2);
}

TEST_F(NativeMonitorCollectorTest, EverySourceFailsOnItsOwn) {
  host.ticks.reset();
  host.physical.reset();
  host.report.reset();
  host.pressure.reset();
  host.volume.reset();
  network.rows.clear();
  storage.rows.clear();
  addProcess(812);
  const auto first = sample();
  EXPECT_EQ(first.apps.size(), 1U);
  EXPECT_EQ(reading(first, MetricID::Cpu).state, MetricState::Unsupported);
  EXPECT_EQ(reading(first, MetricID::Download).state, MetricState::WarmingUp);
  EXPECT_FALSE(first.readings.contains(MetricID::MemoryTotal));
}

TEST(SourceTextsTest, MacTextsStandAsTheyAre) {
  EXPECT_EQ(kMacSourceTexts.cpuFailed, "Mach");
  EXPECT_EQ(kMacSourceTexts.cpu, "Mach host CPU counters");
  EXPECT_EQ(kMacSourceTexts.storage, "Block storage drivers");
  EXPECT_EQ(kMacSourceTexts.accessoryName, "Connected accessory");
}

TEST(SourceTextsTest, LinuxTextsNameNoSourceOfAnotherSystem) {
  const SourceTexts& texts = kLinuxSourceTexts;
  for (const std::string_view text : {texts.cpuFailed,
                                      texts.cpuFailedDetail,
                                      texts.cpu,
                                      texts.cpuDetail,
                                      texts.memoryTotal,
                                      texts.memoryUsed,
                                      texts.memoryUsedDetail,
                                      texts.memoryWired,
                                      texts.memoryCompressed,
                                      texts.memoryPressure,
                                      texts.diskTotal,
                                      texts.diskFree,
                                      texts.network,
                                      texts.downloadDetail,
                                      texts.storage,
                                      texts.diskReadDetail,
                                      texts.battery,
                                      texts.batteryMinutes,
                                      texts.batteryHealth,
                                      texts.batteryHealthDetail,
                                      texts.accessoryName}) {
    EXPECT_FALSE(text.empty());
    for (const std::string_view word : {"Mach", "macOS", "IOKit", "IOPower"}) {
      EXPECT_EQ(text.find(word), std::string_view::npos) << text;
    }
  }
}

}  // namespace
}  // namespace monitor
