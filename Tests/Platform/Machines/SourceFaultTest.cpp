// SPDX-License-Identifier: MIT
// What a fault in one source costs: the figures that come from it, and no other.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "Tests/Platform/Machines/Replay.h"
#include "Tests/Platform/Machines/SnapshotText.h"

namespace monitor::platform {
namespace {

enum class Fault { Missing, Empty, Nonsense, Endless };

// Puts a fault where a file or a folder was.
void breakSource(const std::filesystem::path& path, Fault fault) {
  std::filesystem::remove_all(path);
  if (fault == Fault::Missing) return;
  std::ofstream file(path);
  if (fault == Fault::Nonsense) file << "\x01\xFF nonsense: -1 99999999999999999999999 %s\n";
  if (fault == Fault::Endless) file << std::string(std::size_t{3} << 20U, '7');
}

// The laptop, one sample before the fault and one two seconds later.
MonitorSnapshot sampleWithFault(const std::string& source, Fault fault) {
  std::ifstream text(VESK_FIXTURES "/machines/laptop.machine");
  Replay replay(text);
  EXPECT_TRUE(replay.machine().next());
  (void)replay.sample();
  EXPECT_TRUE(replay.machine().next());
  if (!source.empty()) breakSource(replay.machine().root() / source, fault);
  return replay.sample();
}

std::map<MetricID, std::string> values(const MonitorSnapshot& snapshot) {
  std::map<MetricID, std::string> result;
  for (const auto& [metric, reading] : snapshot.readings) {
    result[metric] =
        reading.value ? std::to_string(*reading.value) : "none, " + std::string(rawValue(reading.state));
  }
  return result;
}

struct Source {
  std::string name;
  std::string path;
  std::set<MetricID> metrics;  // those that come from it
  bool processesStay = true;

  friend void PrintTo(const Source& source, std::ostream* stream) { *stream << source.path; }
};

const std::vector<Source>& sources() {
  static const std::vector<Source> kSources{
      // Where the boot time is known already the processes stay.
      {"CpuCounters",
       "proc/stat",
       {MetricID::Cpu, MetricID::CpuUser, MetricID::CpuSystem, MetricID::CpuIdle}},
      {"Memory",
       "proc/meminfo",
       {MetricID::MemoryTotal, MetricID::MemoryUsed, MetricID::MemoryWired},
       false},  // without it the swap is not known to be in use
      {"Pressure", "proc/pressure/memory", {MetricID::MemoryPressure}},
      {"LastPid", "proc/loadavg", {}},
      {"CompressedSwap", "sys/block/zram0/mm_stat", {MetricID::MemoryCompressed}},
      {"Drive", "sys/block/nvme0n1/stat", {MetricID::DiskRead, MetricID::DiskWrite}},
      {"Drives", "sys/block", {MetricID::DiskRead, MetricID::DiskWrite, MetricID::MemoryCompressed}},
      {"PowerSupplies",
       "sys/class/power_supply",
       {MetricID::Battery, MetricID::BatteryHealth, MetricID::BatteryMinutes}},
      {"DesktopEntries", "usr/share/applications", {}, false},
  };
  return kSources;
}

class SourceFaultTest : public testing::TestWithParam<Source> {};

TEST_P(SourceFaultTest, CostsItsOwnFiguresOnly) {
  const Source& source = GetParam();
  const MonitorSnapshot healthy = sampleWithFault("", Fault::Missing);
  for (const Fault fault : {Fault::Missing, Fault::Empty, Fault::Nonsense, Fault::Endless}) {
    SCOPED_TRACE(static_cast<int>(fault));
    const MonitorSnapshot faulty = sampleWithFault(source.path, fault);
    auto expected = values(healthy);
    auto found = values(faulty);
    for (const MetricID metric : source.metrics) {
      const auto reading = faulty.readings.find(metric);
      EXPECT_TRUE(reading == faulty.readings.end() || !reading->second.value) << rawValue(metric);
      expected.erase(metric);
      found.erase(metric);
    }
    EXPECT_EQ(found, expected);
    EXPECT_EQ(faulty.restrictedProcessCount, 0);
    EXPECT_EQ(faulty.apps.size(), healthy.apps.size());
    if (source.processesStay) {
      EXPECT_EQ(faulty.apps, healthy.apps);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Sources, SourceFaultTest, testing::ValuesIn(sources()),
                         [](const auto& source) { return source.param.name; });

TEST(SourceFaultStateTest, CpuCountersThatFailSaySoByTheirState) {
  const MonitorSnapshot faulty = sampleWithFault("proc/stat", Fault::Missing);
  const MetricReading& cpu = faulty.readings.at(MetricID::Cpu);
  EXPECT_EQ(cpu.state, MetricState::Unsupported);
  EXPECT_EQ(cpu.source, "Linux");
  EXPECT_EQ(cpu.detail, "The kernel did not return CPU counters");
}

TEST(SourceFaultStateTest, WithoutAnyProcessTheRestIsThere) {
  std::ifstream text(VESK_FIXTURES "/machines/laptop.machine");
  Replay replay(text);
  ASSERT_TRUE(replay.machine().next());
  for (const auto& entry : std::filesystem::directory_iterator(replay.machine().root() / "proc")) {
    if (entry.path().filename().string().find_first_not_of("0123456789") == std::string::npos) {
      std::filesystem::remove_all(entry.path());
    }
  }
  const MonitorSnapshot snapshot = replay.sample();
  EXPECT_TRUE(snapshot.apps.empty());
  EXPECT_EQ(snapshot.restrictedProcessCount, 0);
  EXPECT_TRUE(snapshot.readings.contains(MetricID::MemoryUsed));
}

// Files of one process: what it costs that one, and nobody else.
struct ProcessFault {
  std::string file;
  bool listed = true;  // still

  friend void PrintTo(const ProcessFault& fault, std::ostream* stream) { *stream << fault.file; }
};

class ProcessFaultTest : public testing::TestWithParam<ProcessFault> {};

const ProcessSample* find(const MonitorSnapshot& snapshot, std::int32_t pid) {
  for (const AppUsage& app : snapshot.apps) {
    for (const ProcessSample& process : app.processes) {
      if (process.key.pid == pid) return &process;
    }
  }
  return nullptr;
}

TEST_P(ProcessFaultTest, CostsTheOneProcessOnly) {
  constexpr std::int32_t kPid = 2400;  // a browser's helper, with several threads
  const MonitorSnapshot healthy = sampleWithFault("", Fault::Missing);
  for (const Fault fault : {Fault::Missing, Fault::Empty, Fault::Nonsense, Fault::Endless}) {
    SCOPED_TRACE(static_cast<int>(fault));
    const MonitorSnapshot faulty = sampleWithFault("proc/2400/" + GetParam().file, fault);
    EXPECT_EQ(find(faulty, kPid) != nullptr, GetParam().listed);
    for (const std::int32_t other : {1500, 2315, 2600, 2710}) {
      const ProcessSample* process = find(faulty, other);
      ASSERT_NE(process, nullptr) << other;
      EXPECT_EQ(*process, *find(healthy, other));
    }
    EXPECT_EQ(values(faulty), values(healthy));
  }
}

INSTANTIATE_TEST_SUITE_P(Files, ProcessFaultTest,
                         testing::Values(ProcessFault{"stat", false}, ProcessFault{"statm"},
                                         ProcessFault{"io"}, ProcessFault{"status"}, ProcessFault{"cgroup"},
                                         ProcessFault{"exe"}, ProcessFault{"comm"},
                                         ProcessFault{"schedstat"}),
                         [](const auto& fault) { return fault.param.file; });

}  // namespace
}  // namespace monitor::platform
