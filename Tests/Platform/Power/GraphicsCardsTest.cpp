// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/GraphicsCards.h"

#include <gtest/gtest.h>

#include "Tests/Platform/Host/HostTree.h"

namespace monitor::platform {
namespace {

class GraphicsCardsTest : public ::testing::Test {
 protected:
  void set(const std::string& path, const std::string& value) {
    tree.file("sys/class/drm/" + path, value + "\n");
  }
  void look() { interval.looks.push_back(readGraphicsCards(tree.files())); }
  [[nodiscard]] std::optional<double> share() const { return graphicsBusyShare(interval); }
  void engine(std::uint64_t nanoseconds) {
    interval.before[{"i915", "0000:00:02.0", 1}]["render"].nanoseconds = 0;
    interval.after[{"i915", "0000:00:02.0", 1}]["render"].nanoseconds = nanoseconds;
  }

  HostTree tree;
  GraphicsInterval interval{{}, {}, {}, 1.0};
};

TEST_F(GraphicsCardsTest, OnlyCardsCount) {
  set("card0/device/uevent", "DRIVER=i915\nPCI_SLOT_NAME=0000:00:02.0");
  for (const char* other : {"card0-HDMI-A-1", "renderD128", "version", "cardx", "card"})
    tree.folder(std::string("sys/class/drm/") + other);
  const auto cards = readGraphicsCards(tree.files());
  ASSERT_EQ(cards.size(), 1U);
  EXPECT_EQ(cards.at("card0").device, "0000:00:02.0");
}

TEST_F(GraphicsCardsTest, DriversOwnFigureIsAveragedOverTheLooks) {
  for (const char* percent : {"0", "50", "100", "50"}) {
    set("card0/device/gpu_busy_percent", percent);
    look();
  }
  EXPECT_DOUBLE_EQ(share().value(), 0.5);
}

TEST_F(GraphicsCardsTest, FigureBeyondItsRangeIsNone) {
  for (const char* percent : {"101", "-1", "busy", ""}) {
    set("card0/device/gpu_busy_percent", percent);
    look();
    EXPECT_FALSE(interval.looks.back().at("card0").busyPercent) << percent;
  }
  EXPECT_EQ(share(), std::nullopt);
}

TEST_F(GraphicsCardsTest, SleepBetweenLooksCountsAsIdle) {
  set("card0/device/gpu_busy_percent", "40");
  look();
  set("card0/device/power/runtime_status", "suspended");
  look();
  EXPECT_DOUBLE_EQ(share().value(), 0.2);
}

TEST_F(GraphicsCardsTest, CardThatSleptAllTheTimeWasNotBusy) {
  set("card0/device/power/runtime_status", "suspended");
  look();
  look();
  EXPECT_EQ(share(), 0.0);
}

TEST_F(GraphicsCardsTest, EnginesComeBeforeThePowerState) {
  set("card0/device/uevent", "PCI_SLOT_NAME=0000:00:02.0");
  set("card0/gt/gt0/rc6_residency_ms", "1000");
  look();
  set("card0/gt/gt0/rc6_residency_ms", "1100");
  look();
  EXPECT_DOUBLE_EQ(share().value(), 0.9);
  engine(300'000'000);
  EXPECT_DOUBLE_EQ(share().value(), 0.3);
}

TEST_F(GraphicsCardsTest, LeastIdlePartSaysHowBusyTheCardIs) {
  set("card0/device/tile0/gt0/gtidle/idle_residency_ms", "5000");
  set("card0/device/tile0/gt1/gtidle/idle_residency_ms", "5000");
  look();
  set("card0/device/tile0/gt0/gtidle/idle_residency_ms", "5250");
  set("card0/device/tile0/gt1/gtidle/idle_residency_ms", "6000");
  look();
  EXPECT_DOUBLE_EQ(share().value(), 0.75);
}

TEST_F(GraphicsCardsTest, OlderPlaceOfThePowerStateIsKnown) {
  set("card0/power/rc6_residency_ms", "70");
  look();
  set("card0/power/rc6_residency_ms", "570");
  look();
  EXPECT_DOUBLE_EQ(share().value(), 0.5);
}

TEST_F(GraphicsCardsTest, IdleTimeThatIsNotKeptOrFallsIsNone) {
  set("card0/power/rc6_residency_ms", "0");
  look();
  look();
  EXPECT_EQ(share(), std::nullopt);
  interval.looks.clear();
  set("card0/power/rc6_residency_ms", "4294967290");
  look();
  set("card0/power/rc6_residency_ms", "10");
  look();
  EXPECT_EQ(share(), std::nullopt);
}

TEST_F(GraphicsCardsTest, MoreIdleThanTimeIsNotBusy) {
  set("card0/power/rc6_residency_ms", "100");
  look();
  set("card0/power/rc6_residency_ms", "1300");
  look();
  EXPECT_EQ(share(), 0.0);
}

TEST_F(GraphicsCardsTest, BusiestCardCountsAndOneThatTellsNothingDoesNot) {
  set("card0/device/gpu_busy_percent", "10");
  set("card1/device/gpu_busy_percent", "60");
  set("card2/device/uevent", "DRIVER=simple");
  look();
  look();
  EXPECT_DOUBLE_EQ(share().value(), 0.6);
}

TEST_F(GraphicsCardsTest, CardThatCameMeanwhileIsLeftOut) {
  look();
  set("card0/device/gpu_busy_percent", "60");
  look();
  EXPECT_EQ(share(), std::nullopt);
}

TEST_F(GraphicsCardsTest, NoCardNoShare) {
  look();
  look();
  EXPECT_EQ(share(), std::nullopt);
  interval.looks.clear();
  EXPECT_EQ(share(), std::nullopt);
}

}  // namespace
}  // namespace monitor::platform
