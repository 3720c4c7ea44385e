// SPDX-License-Identifier: MIT
#include "MonitorCore/AppAggregator.h"

#include <gtest/gtest.h>

#include <limits>

#include "Tests/MonitorCore/Support/CpuTime.h"
#include "Tests/MonitorCore/Support/Describe.h"
#include "Tests/MonitorCore/Support/NaiveGrouping.h"
#include "Tests/MonitorCore/Support/RandomProcesses.h"

namespace monitor {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

// A process of user 501 whose name is its pid.
ProcessSample process(std::int32_t pid, std::uint64_t start, std::int32_t parent,
                      std::optional<std::string> bundle = std::nullopt) {
  ProcessSample sample;
  sample.key = {pid, start};
  sample.parentPID = parent;
  sample.owner = 501;
  sample.name = std::to_string(pid);
  sample.bundleID = std::move(bundle);
  return sample;
}

std::vector<std::string> ids(const std::vector<AppUsage>& rows) {
  std::vector<std::string> list;
  for (const AppUsage& row : rows) list.push_back(row.id);
  return list;
}

std::vector<std::int32_t> pids(const AppUsage& row) {
  std::vector<std::int32_t> list;
  for (const ProcessSample& member : row.processes) list.push_back(member.key.pid);
  return list;
}

using Ids = std::vector<std::string>;
using Pids = std::vector<std::int32_t>;

TEST(AppAggregatorTest, NoProcessesGiveNoRows) {
  EXPECT_TRUE(AppAggregator::group({}).empty());
}

TEST(AppAggregatorTest, OwnBundleWinsOverTheParents) {
  const auto rows = AppAggregator::group({process(10, 1, 1, "com.parent"), process(11, 2, 10, "com.child")});
  EXPECT_EQ(ids(rows), (Ids{"com.child", "com.parent"}));
}

TEST(AppAggregatorTest, EmptyBundleIdentifierCountsAsPresent) {
  const auto rows = AppAggregator::group({process(10, 1, 1, "com.parent"), process(11, 2, 10, "")});
  EXPECT_EQ(ids(rows), (Ids{"", "com.parent"}));
  EXPECT_EQ(rows[0].bundleID, "");
}

TEST(AppAggregatorTest, ChildWithoutBundleJoinsItsParentsApp) {
  const auto rows = AppAggregator::group({process(11, 2, 10), process(10, 1, 1, "com.parent")});
  ASSERT_EQ(ids(rows), (Ids{"com.parent"}));
  EXPECT_EQ(rows[0].name, "10");
  EXPECT_EQ(rows[0].bundleID, "com.parent");
  EXPECT_EQ(pids(rows[0]), (Pids{10, 11}));
}

TEST(AppAggregatorTest, ParentOfEqualStartIsAParent) {
  EXPECT_EQ(ids(AppAggregator::group({process(10, 5, 1, "com.parent"), process(11, 5, 10)})),
            (Ids{"com.parent"}));
}

TEST(AppAggregatorTest, ParentThatStartedLaterIsAReusedPid) {
  const auto rows = AppAggregator::group({process(10, 6, 1, "com.parent"), process(11, 5, 10)});
  ASSERT_EQ(ids(rows), (Ids{"com.parent", "process:11:5"}));
  EXPECT_EQ(rows[1].name, "11");
  EXPECT_EQ(rows[1].bundleID, std::nullopt);
}

TEST(AppAggregatorTest, StartsAreComparedUnsigned) {
  const std::uint64_t late = std::numeric_limits<std::uint64_t>::max();
  EXPECT_EQ(ids(AppAggregator::group({process(10, 1, 1, "com.parent"), process(11, late, 10)})),
            (Ids{"com.parent"}));
}

TEST(AppAggregatorTest, ParentOfAnotherUserIsNotFollowed) {
  std::vector<ProcessSample> processes{process(10, 1, 1, "com.parent"), process(11, 2, 10)};
  processes[0].owner = 0;
  EXPECT_EQ(ids(AppAggregator::group(processes)), (Ids{"com.parent", "process:11:2"}));
}

TEST(AppAggregatorTest, MissingParentEndsTheWalk) {
  EXPECT_EQ(ids(AppAggregator::group({process(812, 1731712345123456, 10)})),
            (Ids{"process:812:1731712345123456"}));
}

TEST(AppAggregatorTest, WalkPassesAncestorsWithoutBundle) {
  const auto rows = AppAggregator::group(
      {process(10, 1, 1, "com.app"), process(11, 2, 10), process(12, 3, 11), process(13, 4, 12)});
  ASSERT_EQ(ids(rows), (Ids{"com.app"}));
  EXPECT_EQ(pids(rows[0]), (Pids{10, 11, 12, 13}));
}

TEST(AppAggregatorTest, ProcessThatIsItsOwnParentStandsAlone) {
  EXPECT_EQ(ids(AppAggregator::group({process(10, 1, 10)})), (Ids{"process:10:1"}));
}

TEST(AppAggregatorTest, ParentCycleFallsBackForAllOfIt) {
  EXPECT_EQ(ids(AppAggregator::group(
                {process(10, 1, 12), process(11, 1, 10), process(12, 1, 11), process(13, 1, 12)})),
            (Ids{"process:10:1", "process:11:1", "process:12:1", "process:13:1"}));
}

TEST(AppAggregatorTest, BundleOnACycleIsFound) {
  EXPECT_EQ(
      ids(AppAggregator::group({process(10, 1, 12), process(11, 1, 10), process(12, 1, 11, "com.app")})),
      (Ids{"com.app"}));
}

TEST(AppAggregatorTest, FirstOfTwoProcessesWithOnePidIsTheParent) {
  const auto rows = AppAggregator::group(
      {process(10, 1, 1, "com.first"), process(10, 2, 1, "com.second"), process(11, 3, 10)});
  ASSERT_EQ(ids(rows), (Ids{"com.first", "com.second"}));
  EXPECT_EQ(pids(rows[0]), (Pids{10, 11}));
}

TEST(AppAggregatorTest, RepeatedPidWhoseWalkMeetsItselfFallsBack) {
  // The second process 10 comes back to pid 10 by way of 11, although another process with a bundle stands
  // there.
  const auto rows =
      AppAggregator::group({process(10, 1, 1, "com.app"), process(11, 1, 10), process(10, 1, 11)});
  ASSERT_EQ(ids(rows), (Ids{"com.app", "process:10:1"}));
  EXPECT_EQ(pids(rows[0]), (Pids{10, 11}));
}

TEST(AppAggregatorTest, RepeatedPidFindsABundleBelowItself) {
  const auto rows =
      AppAggregator::group({process(10, 1, 1), process(11, 1, 10, "com.app"), process(10, 2, 11)});
  ASSERT_EQ(ids(rows), (Ids{"com.app", "process:10:1"}));
  EXPECT_EQ(pids(rows[0]), (Pids{10, 11}));
}

TEST(AppAggregatorTest, RepeatedKeyGivesOneRowWithBoth) {
  const auto rows = AppAggregator::group({process(10, 1, 1), process(10, 1, 1)});
  ASSERT_EQ(ids(rows), (Ids{"process:10:1"}));
  EXPECT_EQ(rows[0].processes.size(), 2U);
}

TEST(AppAggregatorTest, LastMembersRepresentativeNamesTheRow) {
  std::vector<ProcessSample> processes{process(20, 1, 1, "com.app"), process(10, 1, 1, "com.app"),
                                       process(21, 2, 20)};
  EXPECT_EQ(AppAggregator::group(processes).at(0).name, "20");
  processes.pop_back();
  EXPECT_EQ(AppAggregator::group(processes).at(0).name, "10");
}

TEST(AppAggregatorTest, MembersComeByPidSigned) {
  const auto rows = AppAggregator::group(
      {process(5, 1, 1, "com.app"), process(-3, 1, 1, "com.app"), process(2, 1, 1, "com.app")});
  EXPECT_EQ(pids(rows.at(0)), (Pids{-3, 2, 5}));
}

TEST(AppAggregatorTest, MemorySumWrapsAround) {
  std::vector<ProcessSample> processes{process(10, 1, 1, "com.app"), process(11, 1, 1, "com.app")};
  processes[0].memory = std::numeric_limits<std::uint64_t>::max();
  processes[1].memory = 3;
  EXPECT_EQ(AppAggregator::group(processes).at(0).memory, 2U);
}

TEST(AppAggregatorTest, AllCpuAbsentStaysAbsentAndSortsAfterZero) {
  std::vector<ProcessSample> processes{process(10, 1, 1, "com.absent"), process(11, 1, 1, "com.zero")};
  processes[1].cpu = 0.0;
  const auto rows = AppAggregator::group(processes);
  ASSERT_EQ(ids(rows), (Ids{"com.zero", "com.absent"}));
  EXPECT_EQ(rows[0].cpu, 0.0);
  EXPECT_EQ(rows[1].cpu, std::nullopt);
}

TEST(AppAggregatorTest, NonFiniteFiguresAreLeftOutOfTheSums) {
  std::vector<ProcessSample> processes{process(10, 1, 1, "com.app"), process(11, 1, 1, "com.app"),
                                       process(12, 1, 1, "com.app")};
  processes[0].cpu = kNaN;
  processes[1].cpu = 2.5;
  processes[2].cpu = kInfinity;
  processes[0].diskRead = kNaN;
  processes[1].diskRead = -kInfinity;
  processes[0].energy = 1.0;
  processes[2].energy = 2.0;
  const auto rows = AppAggregator::group(processes);
  EXPECT_EQ(rows.at(0).cpu, 2.5);
  EXPECT_EQ(rows.at(0).diskRead, std::nullopt);
  EXPECT_EQ(rows.at(0).energy, 3.0);
  EXPECT_EQ(rows.at(0).upload, std::nullopt);
}

TEST(AppAggregatorTest, EveryFigureIsSummedIntoItsOwnField) {
  std::vector<ProcessSample> processes{process(10, 1, 1, "com.app"), process(11, 1, 1, "com.app")};
  for (ProcessSample& sample : processes) {
    sample.cpu = 1.0;
    sample.memory = 2;
    sample.diskRead = 3.0;
    sample.diskWrite = 4.0;
    sample.download = 5.0;
    sample.upload = 6.0;
    sample.energy = 7.0;
  }
  const AppUsage row = AppAggregator::group(processes).at(0);
  EXPECT_EQ(row.cpu, 2.0);
  EXPECT_EQ(row.memory, 4U);
  EXPECT_EQ(row.diskRead, 6.0);
  EXPECT_EQ(row.diskWrite, 8.0);
  EXPECT_EQ(row.download, 10.0);
  EXPECT_EQ(row.upload, 12.0);
  EXPECT_EQ(row.energy, 14.0);
}

TEST(AppAggregatorTest, SumsAreTakenInInputOrder) {
  std::vector<ProcessSample> processes{process(30, 1, 1, "com.app"), process(20, 1, 1, "com.app"),
                                       process(10, 1, 1, "com.app")};
  processes[0].cpu = 1e16;
  processes[1].cpu = 1.0;
  processes[2].cpu = -1e16;
  EXPECT_EQ(AppAggregator::group(processes).at(0).cpu, (1e16 + 1.0) - 1e16);
}

TEST(AppAggregatorTest, RowsComeByCpuThenById) {
  std::vector<ProcessSample> processes{process(10, 1, 1, "com.b"), process(11, 1, 1, "com.a"),
                                       process(12, 1, 1, "com.z"), process(13, 1, 1, "com.B"),
                                       process(14, 1, 1, "com.\xC3\xA9")};
  for (ProcessSample& sample : processes) sample.cpu = 1.0;
  processes[2].cpu = 1.5;
  EXPECT_EQ(ids(AppAggregator::group(processes)), (Ids{"com.z", "com.B", "com.a", "com.b", "com.\xC3\xA9"}));
}

TEST(AppAggregatorTest, IdsThatBeginAlikeComeInOrderToo) {
  using namespace std::string_literals;
  const Ids ordered{"",
                    "com"s,
                    "com\0"s,
                    "com\0a"s,
                    "com.example"s,
                    "com.example.app."s,
                    "com.example.app.\0"s,
                    "com.example.app.a"s,
                    "com.example.app.b"s,
                    "com.example.app\x7F"s,
                    "com.example.app\x80"s,
                    "com.example\xFF"s};
  std::vector<ProcessSample> processes;
  for (std::size_t index = 0; index < ordered.size(); ++index) {
    const std::size_t place = (index * 5) % ordered.size();  // in another order
    processes.push_back(process(static_cast<std::int32_t>(index), 1, -1, ordered[place]));
  }
  EXPECT_EQ(ids(AppAggregator::group(processes)), ordered);
}

TEST(AppAggregatorTest, ABundleNamedLikeAProcessWithoutOneSharesItsRow) {
  const ProcessSample plain = process(812, 5000, 1);
  const ProcessSample named = process(900, 6000, 1, "process:812:5000");
  for (const auto& processes : {std::vector{plain, named}, std::vector{named, plain}}) {
    const auto rows = AppAggregator::group(processes);
    EXPECT_EQ(ids(rows), Ids{"process:812:5000"});
    EXPECT_EQ(pids(rows.front()), (Pids{812, 900}));
    EXPECT_EQ(rows.front().name, processes.back().name) << "the last member's representative";
  }
}

// Pids that lie side by side, far apart, and evenly apart, where a table of them has its worst days.
TEST(AppAggregatorTest, AgreesWithTheNaiveGroupingHoweverPidsAreSpread) {
  testing::Chance chance(20240102);
  for (const std::int32_t apart : {1, 2, 63, 64, 65, 4'096, 1 << 20, 0x7654321}) {
    std::vector<ProcessSample> processes;
    std::uint32_t pid = 0xFFFFF000U;  // negative, then positive
    for (int count = 0; count < 700; ++count, pid += static_cast<std::uint32_t>(apart)) {
      auto next = process(static_cast<std::int32_t>(pid), static_cast<std::uint64_t>(count), 1);
      if (count > 0) next.parentPID = chance.of(processes).key.pid;
      if (chance.oneIn(9)) next.bundleID = "com.example." + std::to_string(chance.below(30));
      next.cpu = static_cast<double>(chance.below(3));
      processes.push_back(next);
    }
    ASSERT_EQ(testing::describe(AppAggregator::group(processes)),
              testing::describe(testing::naiveApps(processes)))
        << apart << " apart";
  }
}

TEST(AppAggregatorTest, AgreesWithTheNaiveGroupingOnRandomForests) {
  testing::Chance chance(20240101);
  for (int round = 0; round < testing::rounds(1500); ++round) {
    const auto processes = testing::anyProcesses(chance, 1 + chance.below(24));
    ASSERT_EQ(testing::describe(AppAggregator::group(processes)),
              testing::describe(testing::naiveApps(processes)))
        << "round " << round;
  }
}

TEST(AppAggregatorTest, EveryProcessIsInExactlyOneRow) {
  testing::Chance chance(7);
  for (int round = 0; round < testing::rounds(100); ++round) {
    const auto processes = testing::anyProcesses(chance, 60);
    std::size_t members = 0;
    for (const AppUsage& row : AppAggregator::group(processes)) members += row.processes.size();
    ASSERT_EQ(members, processes.size());
  }
}

TEST(AppAggregatorTest, GroupAndClearGivesTheSameRowsAndKeepsTheMemory) {
  testing::Chance chance(8);
  auto processes = testing::anyProcesses(chance, 60);
  const auto rows = AppAggregator::group(processes);
  const std::size_t room = processes.capacity();
  EXPECT_EQ(testing::describe(AppAggregator::groupAndClear(processes)), testing::describe(rows));
  EXPECT_TRUE(processes.empty());
  EXPECT_EQ(processes.capacity(), room);
}

TEST(AppAggregatorTest, ChainOfTenThousandIsGroupedWithinASecond) {
  const auto chain = testing::processChain(10'000);
  std::vector<AppUsage> rows;
  EXPECT_LT(testing::cpuSeconds([&] { rows = AppAggregator::group(chain); }), 1.0);
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].processes.size(), 10'000U);
  EXPECT_EQ(rows[0].cpu, 5'000.0);
}

}  // namespace
}  // namespace monitor
