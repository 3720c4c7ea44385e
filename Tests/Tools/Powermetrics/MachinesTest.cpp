// SPDX-License-Identifier: MIT
// Whole machines from their files to the sample that the helper passes on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "MonitorCore/AdvancedParser.h"
#include "Tests/Fakes/VirtualTime.h"
#include "Tests/Platform/Power/RecordedMachine.h"
#include "Tools/powermetrics/Powermetrics.h"

namespace monitor::powermetrics {
namespace {

using platform::RecordedMachine;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const std::vector<std::string> kCollectorsArguments{"--samplers",
                                                    "tasks,cpu_power,gpu_power,thermal,smc",
                                                    "--show-process-netstats",
                                                    "--show-process-energy",
                                                    "--sample-count",
                                                    "1",
                                                    "--sample-rate",
                                                    "1000",
                                                    "--format",
                                                    "plist"};

// One run of the tool on a machine, within this process.
class ToolOnMachine {
 public:
  explicit ToolOnMachine(const std::string& text) : machine(text) {}

  ExitCode with(const std::vector<std::string>& arguments) {
    return run(arguments, {machine.sources(), wallClock,
                           [this](std::string_view bytes) {
                             if (writesLeft-- == 0) return ENOSPC;
                             output += bytes;
                             return 0;
                           },
                           [this](const std::string& line) { complaint = line; }});
  }
  // The sample of a run with the collector's arguments; the start of a process is its pid.
  AdvancedSample sample(const std::vector<std::int32_t>& pids) {
    EXPECT_EQ(with(kCollectorsArguments), ExitCode::Ok) << complaint;
    ProcessIdentities identities;
    for (const std::int32_t pid : pids) identities[pid] = {pid, static_cast<std::uint64_t>(pid)};
    return AdvancedParser::parse(output, identities, wallClock.now());
  }

  RecordedMachine machine;
  fakes::VirtualTime time;
  fakes::FakeWallClock wallClock{time};
  std::string output;
  std::string complaint;
  int writesLeft = -1;
};

std::optional<double> value(const AdvancedSample& sample, MetricID metric) {
  const auto found = sample.readings.find(metric);
  return found == sample.readings.end() ? std::nullopt : found->second.value;
}

AdvancedProcessReading process(std::int32_t pid, std::optional<double> download, std::optional<double> upload,
                               double energy) {
  return {{pid, static_cast<std::uint64_t>(pid)}, download, upload, energy};
}

TEST(PowermetricsMachinesTest, LaptopWithIntelGraphics) {
  ToolOnMachine tool(RecordedMachine::textOf("intel-laptop"));
  const AdvancedSample sample = tool.sample({1, 650, 812, 900, 950});
  EXPECT_DOUBLE_EQ(sample.interval, 1.0);
  EXPECT_DOUBLE_EQ(value(sample, MetricID::PowerWatts).value(), 8.0);
  EXPECT_DOUBLE_EQ(value(sample, MetricID::Gpu).value(), 40.0);
  EXPECT_EQ(value(sample, MetricID::CpuTemperature), 52.0);
  EXPECT_EQ(value(sample, MetricID::GpuTemperature), std::nullopt);
  EXPECT_EQ(value(sample, MetricID::FanRPM), 2741.0);
  EXPECT_THAT(sample.notes, IsEmpty());
  ASSERT_EQ(sample.processes.size(), 4U);  // the one that left is gone
  EXPECT_EQ(sample.processes[0], process(1, std::nullopt, std::nullopt, 0.0));
  EXPECT_EQ(sample.processes[1].key.pid, 650);
  EXPECT_NEAR(sample.processes[1].energy.value(), 25.0, 1e-6);
  EXPECT_EQ(sample.processes[2].key.pid, 812);
  EXPECT_NEAR(sample.processes[2].download.value(), 41'960.0, 1e-3);
  EXPECT_NEAR(sample.processes[2].upload.value(), 2'548.0, 1e-3);
  EXPECT_NEAR(sample.processes[2].energy.value(), 70.0, 1e-6);
  EXPECT_EQ(sample.processes[3].key.pid, 950);
  EXPECT_EQ(sample.processes[3].download, std::nullopt);  // in a network namespace of its own
  EXPECT_NEAR(sample.processes[3].energy.value(), 50.0, 1e-6);
  EXPECT_EQ(sample.statusDescription(), "Connected \u00B7 4 hardware readings available.");
}

TEST(PowermetricsMachinesTest, DesktopWithAmdGraphics) {
  ToolOnMachine tool(RecordedMachine::textOf("amd-desktop"));
  const AdvancedSample sample = tool.sample({4242, 4300});
  EXPECT_DOUBLE_EQ(value(sample, MetricID::PowerWatts).value(), 42.5);
  EXPECT_NEAR(value(sample, MetricID::Gpu).value(), 50.0, 1e-9);
  EXPECT_EQ(value(sample, MetricID::CpuTemperature), 65.25);
  EXPECT_EQ(value(sample, MetricID::GpuTemperature), 48.0);
  EXPECT_EQ(value(sample, MetricID::FanRPM), 1433.0);
  ASSERT_EQ(sample.processes.size(), 2U);
  EXPECT_NEAR(sample.processes[0].download.value(), 5e9, 1.0);
  EXPECT_NEAR(sample.processes[0].upload.value(), 70.0, 1e-6);
  EXPECT_NEAR(sample.processes[0].energy.value(), 90.0, 1e-6);
  EXPECT_EQ(sample.processes[1], process(4300, std::nullopt, std::nullopt, 0.0));
}

TEST(PowermetricsMachinesTest, WorkstationWithTwoPackagesAndASeparateIntelCard) {
  ToolOnMachine tool(RecordedMachine::textOf("xe-workstation"));
  const AdvancedSample sample = tool.sample({3000, 3100});
  EXPECT_DOUBLE_EQ(value(sample, MetricID::PowerWatts).value(), 200.0);
  EXPECT_NEAR(value(sample, MetricID::Gpu).value(), 25.0,
              1e-9);  // render; of four compute engines half of one
  EXPECT_EQ(value(sample, MetricID::CpuTemperature), 68.0);
  EXPECT_EQ(value(sample, MetricID::GpuTemperature), 57.0);
  EXPECT_EQ(value(sample, MetricID::FanRPM), 1012.0);
  ASSERT_EQ(sample.processes.size(), 2U);
  EXPECT_NEAR(sample.processes[0].energy.value(), 60.0, 1e-6);
  EXPECT_NEAR(sample.processes[1].energy.value(), 25.0, 1e-6);
  EXPECT_EQ(sample.processes[0].download, std::nullopt);
}

TEST(PowermetricsMachinesTest, VirtualMachineReportsNoHardwareButItsProcesses) {
  ToolOnMachine tool(RecordedMachine::textOf("virtual-machine"));
  const AdvancedSample sample = tool.sample({1, 77});
  EXPECT_THAT(sample.readings, IsEmpty());
  EXPECT_THAT(sample.notes, ElementsAre("This Mac did not report a recognized advanced hardware reading."));
  ASSERT_EQ(sample.processes.size(), 2U);
  EXPECT_EQ(sample.processes[0], process(1, std::nullopt, std::nullopt, 0.0));
  EXPECT_EQ(sample.processes[1].download, 0.0);
  EXPECT_EQ(sample.processes[1].upload, 0.0);
  EXPECT_NEAR(sample.processes[1].energy.value(), 100.0, 1e-6);
}

TEST(PowermetricsMachinesTest, EmptyMachineIsAnEmptyDocument) {
  ToolOnMachine tool("");
  const AdvancedSample sample = tool.sample({1});
  EXPECT_THAT(sample.readings, IsEmpty());
  EXPECT_THAT(sample.processes, IsEmpty());
  EXPECT_NEAR(sample.interval, 1.0, 1e-9);
}

TEST(PowermetricsMachinesTest, CounterThatJumpsIsNoReading) {
  ToolOnMachine tool(RecordedMachine::textOf("amd-desktop") +
                     "== sys/class/powercap/intel-rapl:0/energy_uj\n" + "65532610986\n");
  EXPECT_EQ(value(tool.sample({}), MetricID::PowerWatts), std::nullopt);
}

TEST(PowermetricsMachinesTest, HostileFilesLeaveTheirReadingsOutAndTheRestIn) {
  const std::string endless(2 << 20, '9');
  ToolOnMachine tool(
      RecordedMachine::textOf("intel-laptop") + "== sys/class/powercap/intel-rapl:0/energy_uj\n" + endless +
      "\n== sys/class/hwmon/hwmon5/temp1_input\nnan\n== sys/class/hwmon/hwmon5/temp2_input\n-1e308\n" +
      "== sys/class/hwmon/hwmon5/temp3_input\n\x01\x02\n== sys/class/thermal/thermal_zone9/temp\ninf\n" +
      "== proc/812/stat\n812 (browser\n== proc/650/fdinfo/14\ndrm-driver:\ti915\ndrm-client-id:\t" + endless +
      "\n");
  const AdvancedSample sample = tool.sample({1, 650, 812});
  EXPECT_EQ(value(sample, MetricID::PowerWatts), std::nullopt);
  EXPECT_EQ(value(sample, MetricID::CpuTemperature), std::nullopt);
  EXPECT_EQ(value(sample, MetricID::FanRPM), 2741.0);
  ASSERT_EQ(sample.processes.size(), 2U);
  EXPECT_EQ(sample.processes[1].key.pid, 650);
}

TEST(PowermetricsMachinesTest, SamplesFollowEachOtherPartedByZeroBytes) {
  ToolOnMachine tool(RecordedMachine::textOf("amd-desktop"));
  EXPECT_EQ(tool.with({"--samplers", "cpu_power", "--sample-count", "3"}), ExitCode::Ok);
  EXPECT_EQ(std::count(tool.output.begin(), tool.output.end(), '\0'), 2);
  const std::string first = tool.output.substr(0, tool.output.find('\0'));
  EXPECT_DOUBLE_EQ(
      value(AdvancedParser::parse(first, {}, tool.wallClock.now()), MetricID::PowerWatts).value(), 42.5);
  // Nothing was used after the first interval: a reader of all of it sees the last one.
  EXPECT_EQ(value(AdvancedParser::parse(tool.output, {}, tool.wallClock.now()), MetricID::PowerWatts), 0.0);
}

TEST(PowermetricsMachinesTest, OutputThatCannotBeWrittenIsAFailure) {
  ToolOnMachine tool(RecordedMachine::textOf("virtual-machine"));
  tool.writesLeft = 1;
  EXPECT_EQ(tool.with({"--sample-count", "3"}), ExitCode::Failed);
  EXPECT_EQ(tool.complaint, "Standard output cannot be written: No space left on device.");
  EXPECT_EQ(tool.output.find('\0'), std::string::npos);
}

TEST(PowermetricsMachinesTest, WrongUsageMeasuresNothing) {
  ToolOnMachine tool(RecordedMachine::textOf("virtual-machine"));
  EXPECT_EQ(tool.with({"--format", "text"}), ExitCode::Usage);
  EXPECT_EQ(tool.complaint,
            "--format: \"text\" is not plist.\nRun `vesk-powermetrics --help` for the arguments.");
  EXPECT_EQ(tool.output, "");
}

TEST(PowermetricsMachinesTest, HelpIsPrintedWithoutMeasuring) {
  ToolOnMachine tool(RecordedMachine::textOf("virtual-machine"));
  EXPECT_EQ(tool.with({"--help"}), ExitCode::Ok);
  EXPECT_THAT(tool.output, HasSubstr("\n  smc "));
}

}  // namespace
}  // namespace monitor::powermetrics
