// SPDX-License-Identifier: MIT
#include "MonitorMac/ProcessListing.h"

#include <gtest/gtest.h>

namespace monitor {
namespace {

TEST(PidCapacityTest, IsFixedBelow768Processes) {
  EXPECT_EQ(pidCapacity(-1), 1'024U);
  EXPECT_EQ(pidCapacity(0), 1'024U);
  EXPECT_EQ(pidCapacity(767), 1'024U);
  EXPECT_EQ(pidCapacity(768), 1'024U);
  EXPECT_EQ(pidCapacity(769), 1'025U);
}

TEST(PidCapacityTest, NeverExceeds32768) {
  EXPECT_EQ(pidCapacity(32'511), 32'767U);
  EXPECT_EQ(pidCapacity(32'512), 32'768U);
  EXPECT_EQ(pidCapacity(2'000'000'000), 32'768U);
}

TEST(DescriptorCapacityTest, BelievesSizesFromOneToBelowFourMillion) {
  EXPECT_EQ(descriptorCapacity(-1), 0U);
  EXPECT_EQ(descriptorCapacity(0), 0U);
  EXPECT_EQ(descriptorCapacity(1), 16U);
  EXPECT_EQ(descriptorCapacity(80), 26U);
  EXPECT_EQ(descriptorCapacity(3'999'999), 500'015U);
  EXPECT_EQ(descriptorCapacity(4'000'000), 0U);
}

}  // namespace
}  // namespace monitor
