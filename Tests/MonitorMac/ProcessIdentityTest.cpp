// SPDX-License-Identifier: MIT
#include "MonitorMac/ProcessIdentity.h"

#include <gtest/gtest.h>

#include <limits>

#include "MonitorMac/NativeMonitorCollector.h"
#include "Tests/Fakes/FakeProcessTable.h"

namespace monitor {
namespace {

constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();

TEST(ProcessIdentity, TellsKeyParentAndOwner) {
  fakes::FakeProcessTable table;
  table.add({812, 1'700'000'000'123'456}, "/usr/bin/player", 501, 77);
  EXPECT_EQ(processInfo(table, 812), (ProcessIdentity{{812, 1'700'000'000'123'456}, 77, 501}));
  EXPECT_EQ(NativeMonitorCollector::processInfo(table, 812), processInfo(table, 812));
  EXPECT_EQ(NativeMonitorCollector::executable(table, 812), "/usr/bin/player");
}

TEST(ProcessIdentity, AProcessThatIsNotThereIsAbsentAndHasNoExecutable) {
  fakes::FakeProcessTable table;
  EXPECT_EQ(processInfo(table, 812), std::nullopt);
  EXPECT_EQ(executable(table, 812), "");
}

TEST(ProcessIdentity, AReusedPidHasAnotherKey) {
  fakes::FakeProcessTable table;
  table.add({812, 5'000}, "/usr/bin/player");
  const auto first = processInfo(table, 812);
  table.end(812);
  EXPECT_EQ(processInfo(table, 812), std::nullopt);
  table.add({812, 6'000}, "/usr/bin/player");
  EXPECT_NE(processInfo(table, 812), first);
}

TEST(ProcessIdentity, TheStartTimeMayFillSixtyFourBits) {
  fakes::FakeProcessTable table;
  auto& record = table.add({1, 0}, "").record;
  record.startSeconds = kMost / 1'000'000;
  record.startMicroseconds = kMost % 1'000'000;
  ASSERT_TRUE(processInfo(table, 1));
  EXPECT_EQ(processInfo(table, 1)->key.start, kMost);
}

TEST(ProcessIdentityDeathTest, AStartTimeThatDoesNotFitStopsTheProgram) {
  fakes::FakeProcessTable table;
  auto& record = table.add({1, 0}, "").record;
  record.startSeconds = kMost / 1'000'000;
  record.startMicroseconds = kMost % 1'000'000 + 1;
  EXPECT_DEATH((void)processInfo(table, 1), "start time");
  record.startSeconds = kMost / 1'000'000 + 1;
  record.startMicroseconds = 0;
  EXPECT_DEATH((void)processInfo(table, 1), "start time");
}

TEST(ProcessIdentityDeathTest, AParentThatIsNoPidStopsTheProgram) {
  fakes::FakeProcessTable table;
  auto& record = table.add({1, 0}, "").record;
  record.parent = 0x7FFF'FFFF;
  EXPECT_EQ(processInfo(table, 1)->parent, 0x7FFF'FFFF);
  record.parent = 0x8000'0000;
  EXPECT_DEATH((void)processInfo(table, 1), "parent");
}

TEST(ProcessIdentity, TheExecutableEndsAtTheFirstNul) {
  fakes::FakeProcessTable table;
  table.add({1, 0}, std::string("/bin/a\0rest", 11));
  EXPECT_EQ(executable(table, 1), "/bin/a");
}

TEST(ProcessIdentity, AnExecutableThatIsNotUtf8IsRepaired) {
  fakes::FakeProcessTable table;
  table.add({1, 0}, "/opt/pl\xFFyer");
  EXPECT_EQ(executable(table, 1), "/opt/pl\xEF\xBF\xBDyer");
}

}  // namespace
}  // namespace monitor
