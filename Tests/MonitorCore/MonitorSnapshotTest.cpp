// SPDX-License-Identifier: MIT
#include "MonitorCore/MonitorSnapshot.h"

#include <gtest/gtest.h>

namespace monitor {
namespace {

TEST(MonitorSnapshotTest, SevenFieldsLeaveTheHelperFieldsAtTheirDefaults) {
  const MonitorSnapshot snapshot{Date{100}, 5000.0, 2.0, {}, {AppUsage{}}, {{"id", "Mouse", 50.0}}, 3};
  EXPECT_EQ(snapshot.timestamp, Date{100});
  EXPECT_EQ(snapshot.uptime, 5000.0);
  EXPECT_EQ(snapshot.interval, 2.0);
  EXPECT_EQ(snapshot.apps.size(), 1U);
  EXPECT_EQ(snapshot.accessories.size(), 1U);
  EXPECT_EQ(snapshot.restrictedProcessCount, 3);
  EXPECT_EQ(snapshot.advancedTimestamp, std::nullopt);
  EXPECT_EQ(snapshot.advancedInterval, 1.0);
}

TEST(MonitorSnapshotTest, EmptyReadingsAndAppsAreValid) {
  const MonitorSnapshot snapshot{Date{0}, 0.0, 1.0, {}, {}, {}, 0};
  EXPECT_TRUE(snapshot.readings.empty());
  EXPECT_TRUE(snapshot.apps.empty());
}

}  // namespace
}  // namespace monitor
