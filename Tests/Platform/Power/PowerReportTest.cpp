// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/PowerReport.h"

#include <gtest/gtest.h>

namespace monitor::platform {
namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;

class PowerReportTest : public ::testing::Test {
 protected:
  PowerReportTest() {
    interval.before.time = 100.0;
    interval.after.time = 101.0;
    interval.before.sockets.emplace();
    interval.after.sockets.emplace();
  }

  // In both snapshots.
  void process(std::int32_t pid, std::uint64_t ticksBefore, std::uint64_t ticksAfter,
               std::uint64_t start = 500) {
    interval.before.processes.push_back({pid, start, ticksBefore, "tool", true, {}, {}});
    interval.after.processes.push_back({pid, start, ticksAfter, "tool", true, {}, {}});
  }
  ProcessActivity& before(std::size_t index) { return interval.before.processes.at(index); }
  ProcessActivity& after(std::size_t index) { return interval.after.processes.at(index); }
  void holds(std::size_t index, std::uint64_t inode) {
    before(index).sockets.push_back(inode);
    after(index).sockets.push_back(inode);
  }
  void socketBefore(const TcpSocket& socket) { interval.before.sockets->push_back(socket); }
  void socketAfter(const TcpSocket& socket) { interval.after.sockets->push_back(socket); }
  [[nodiscard]] std::vector<TaskReport> tasks() const { return taskReports(interval); }
  [[nodiscard]] TaskReport task(std::size_t index = 0) const { return tasks().at(index); }

  PowerInterval interval;
};

TEST_F(PowerReportTest, EnergyIsAHundredForACoreThatWasBusyAllTheTime) {
  process(7, 1'000, 1'100);
  EXPECT_DOUBLE_EQ(task().cpuSeconds, 1.0);
  EXPECT_DOUBLE_EQ(task().energyImpact, 100.0);
}

TEST_F(PowerReportTest, EnergyIsAMeanOverTheInterval) {
  process(7, 1'000, 1'100);
  interval.after.time = 104.0;
  EXPECT_DOUBLE_EQ(task().energyImpact, 25.0);
}

TEST_F(PowerReportTest, WorkOfGraphicsCardsIsPartOfTheEnergy) {
  process(7, 0, 10);
  before(0).drmClients[{"i915", "a", 1}]["render"].nanoseconds = 0;
  after(0).drmClients[{"i915", "a", 1}]["render"].nanoseconds = kSecond / 2;
  EXPECT_DOUBLE_EQ(task().energyImpact, 60.0);
}

TEST_F(PowerReportTest, ClientThatSeveralProcessesHoldCountsOnceForTheFirstOfThem) {
  process(7, 0, 0, 900);
  process(8, 0, 0, 800);
  for (std::size_t index : {0U, 1U}) {
    before(index).drmClients[{"i915", "a", 1}]["render"].nanoseconds = 0;
    after(index).drmClients[{"i915", "a", 1}]["render"].nanoseconds = kSecond / 2;
  }
  EXPECT_EQ(task(0).energyImpact, 0.0);
  EXPECT_DOUBLE_EQ(task(1).energyImpact, 50.0);
}

TEST_F(PowerReportTest, TimeThatStepsBackIsNoWork) {
  process(7, 1'000, 999);
  EXPECT_EQ(task().cpuSeconds, 0.0);
  EXPECT_EQ(task().energyImpact, 0.0);
}

TEST_F(PowerReportTest, OnlyProcessesThatLivedThroughTheIntervalCount) {
  process(7, 0, 10);
  interval.before.processes.push_back({8, 500, 1, "ended", true, {}, {}});
  interval.after.processes.push_back({9, 600, 1, "began", true, {}, {}});
  const auto list = tasks();
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(list[0].pid, 7);
}

TEST_F(PowerReportTest, PidThatWasTakenOverIsAnotherProcess) {
  process(7, 0, 10);
  after(0).startTicks = 501;
  EXPECT_TRUE(tasks().empty());
}

TEST_F(PowerReportTest, BytesAreTheGrowthOfTheProcesssConnections) {
  process(7, 0, 0);
  holds(0, 41);
  holds(0, 42);
  socketBefore({1, 41, 1'000, 50});
  socketBefore({2, 42, 0, 0});
  socketAfter({1, 41, 1'500, 60});
  socketAfter({2, 42, 5, 6});
  EXPECT_EQ(task().received, 505.0);
  EXPECT_EQ(task().sent, 16.0);
}

TEST_F(PowerReportTest, IdleConnectionCarriedNothing) {
  process(7, 0, 0);
  holds(0, 41);
  socketBefore({1, 41, 1'000, 50});
  socketAfter({1, 41, 1'000, 50});
  EXPECT_EQ(task().received, 0.0);
  EXPECT_EQ(task().sent, 0.0);
}

TEST_F(PowerReportTest, ProcessWithoutConnectionsHasNoBytes) {
  process(7, 0, 0);
  holds(0, 41);  // of another kind
  EXPECT_EQ(task().received, std::nullopt);
  EXPECT_EQ(task().sent, std::nullopt);
}

TEST_F(PowerReportTest, NewConnectionCarriedAllOfItMeanwhile) {
  process(7, 0, 0);
  after(0).sockets = {43};
  socketAfter({3, 43, 700, 70});
  EXPECT_EQ(task().received, 700.0);
  EXPECT_EQ(task().sent, 70.0);
}

TEST_F(PowerReportTest, ConnectionThatEndedCountsWithItsLastWord) {
  process(7, 0, 0);
  before(0).sockets = {41};
  socketBefore({1, 41, 1'000, 50});
  interval.endedSockets = {{1, 0, 1'900, 51}};
  EXPECT_EQ(task().received, 900.0);
  EXPECT_EQ(task().sent, 1.0);
  socketAfter({1, 0, 1'800, 51});  // it was still in the list
  EXPECT_EQ(task().received, 900.0);
}

TEST_F(PowerReportTest, ConnectionThatItsOwnerClosedButTheKernelStillServesCounts) {
  process(7, 0, 0);
  before(0).sockets = {41};
  socketBefore({1, 41, 0, 50});
  socketAfter({1, 0, 0, 90});
  EXPECT_EQ(task().sent, 40.0);
}

TEST_F(PowerReportTest, ConnectionThatVanishedUnseenIsNotGuessed) {
  process(7, 0, 0);
  before(0).sockets = {41};
  socketBefore({1, 41, 1'000, 50});
  EXPECT_EQ(task().received, std::nullopt);
}

TEST_F(PowerReportTest, ConnectionWhoseCountersFallIsNotCounted) {
  process(7, 0, 0);
  holds(0, 41);
  socketBefore({1, 41, 1'000, 50});
  socketAfter({1, 41, 10, 60});
  EXPECT_EQ(task().received, std::nullopt);
  EXPECT_EQ(task().sent, std::nullopt);
}

TEST_F(PowerReportTest, SharedConnectionCountsOnceForTheProcessThatBeganFirst) {
  process(7, 0, 0, 900);
  process(8, 0, 0, 800);
  holds(0, 41);
  holds(1, 41);
  socketBefore({1, 41, 0, 0});
  socketAfter({1, 41, 10, 20});
  EXPECT_EQ(task(0).received, std::nullopt);
  EXPECT_EQ(task(1).received, 10.0);
}

TEST_F(PowerReportTest, UnseenSocketsLeaveTheBytesUnknown) {
  process(7, 0, 0);
  holds(0, 41);
  socketBefore({1, 41, 0, 0});
  socketAfter({1, 41, 10, 20});
  after(0).socketsKnown = false;
  EXPECT_EQ(task().received, std::nullopt);
  after(0).socketsKnown = true;
  before(0).socketsKnown = false;
  EXPECT_EQ(task().received, std::nullopt);
}

TEST_F(PowerReportTest, KernelThatTellsNoConnectionsLeavesAllBytesUnknown) {
  process(7, 0, 0);
  holds(0, 41);
  socketAfter({1, 41, 10, 20});
  interval.before.sockets.reset();
  EXPECT_EQ(task().received, std::nullopt);
  interval.before.sockets.emplace();
  interval.after.sockets.reset();
  EXPECT_EQ(task().received, std::nullopt);
}

TEST_F(PowerReportTest, NoTimeNoTasks) {
  process(7, 0, 10);
  interval.after.time = interval.before.time;
  EXPECT_TRUE(tasks().empty());
}

}  // namespace
}  // namespace monitor::platform
