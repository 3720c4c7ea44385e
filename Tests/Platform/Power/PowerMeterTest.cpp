// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/PowerMeter.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "Tests/Platform/Host/HostTree.h"

namespace monitor::platform {
namespace {

class StoppedClock final : public Clock {
 public:
  [[nodiscard]] double now() const override { return time; }
  double time = 100.0;
};

// Every question takes `delay`.
class SlowSockets final : public TcpSockets {
 public:
  explicit SlowSockets(StoppedClock& clock) : clock_(clock) {}
  std::optional<std::vector<TcpSocket>> current() override {
    ++questions;
    clock_.time += delay;
    return std::vector<TcpSocket>();
  }
  std::vector<TcpSocket> ended() override {
    ++questions;
    return {};
  }
  int questions = 0;
  double delay = 0.0;

 private:
  StoppedClock& clock_;
};

class PowerMeterTest : public ::testing::Test {
 protected:
  PowerMeter meter(PowerWanted wanted) {
    return {{tree.root(), sockets, clock,
             [this](double seconds) {
               waits.push_back(seconds);
               clock.time += seconds;
               if (duringWait) duringWait();
             }},
            wanted};
  }

  HostTree tree;
  StoppedClock clock;
  SlowSockets sockets{clock};
  std::vector<double> waits;
  std::function<void()> duringWait;
};

TEST_F(PowerMeterTest, IntervalIsTheTimeThatWasAskedFor) {
  PowerMeter measured = meter({.cpuPower = true});
  EXPECT_DOUBLE_EQ(measured.next(2.5).seconds, 2.5);
  EXPECT_EQ(waits, std::vector<double>{2.5});
}

TEST_F(PowerMeterTest, IntervalsFollowEachOtherWithoutAGap) {
  PowerMeter measured = meter({.cpuPower = true});
  (void)measured.next(1.0);
  clock.time += 0.25;  // the output was written meanwhile
  EXPECT_DOUBLE_EQ(measured.next(1.0).seconds, 1.0);
  EXPECT_DOUBLE_EQ(waits.back(), 0.75);
}

TEST_F(PowerMeterTest, LookThatTakesLongerThanTheIntervalLengthensIt) {
  sockets.delay = 3.0;
  PowerMeter measured = meter({.tasks = true, .network = true});
  EXPECT_DOUBLE_EQ(measured.next(1.0).seconds, 3.0);
  EXPECT_TRUE(waits.empty());
}

TEST_F(PowerMeterTest, WaitThatEndsEarlyIsGoneOnWith) {
  PowerMeter measured = meter({.cpuPower = true});
  duringWait = [this] {
    if (waits.size() == 1) clock.time -= 0.5;
  };
  EXPECT_DOUBLE_EQ(measured.next(1.0).seconds, 1.0);
  EXPECT_EQ(waits, (std::vector<double>{1.0, 0.5}));
}

TEST_F(PowerMeterTest, GraphicsCardsAreLookedAtATenthOfASecondApart) {
  const std::string busy = "sys/class/drm/card0/device/gpu_busy_percent";
  tree.file(busy, "0\n");
  PowerMeter measured = meter({.gpuPower = true});
  duringWait = [&] { tree.file(busy, waits.size() == 1 ? "30\n" : "0\n"); };
  // Looks at 0, 0.1, … 0.5: six of them, one at 30 %.
  EXPECT_NEAR(measured.next(0.5).gpuShare.value(), 0.05, 1e-9);
  EXPECT_LE(*std::max_element(waits.begin(), waits.end()), 0.1);
}

TEST_F(PowerMeterTest, WhatIsNotWantedIsNotLookedAt) {
  tree.file("sys/class/drm/card0/device/gpu_busy_percent", "50\n");
  tree.file("sys/class/hwmon/hwmon0/name", "coretemp\n")
      .file("sys/class/hwmon/hwmon0/temp1_input", "50000\n");
  tree.file("proc/7/stat", "7 (tool) S 1 1 1 0 -1 0 0 0 0 0 5 5 0 0 20 0 1 0 77 0 0 0\n");
  PowerMeter none = meter({});
  const PowerReading nothing = none.next(1.0);
  EXPECT_EQ(nothing.gpuShare, std::nullopt);
  EXPECT_EQ(nothing.cpuCelsius, std::nullopt);
  EXPECT_TRUE(nothing.tasks.empty());
  EXPECT_EQ(sockets.questions, 0);

  PowerMeter all =
      meter({.tasks = true, .network = true, .cpuPower = true, .gpuPower = true, .sensors = true});
  const PowerReading reading = all.next(1.0);
  EXPECT_EQ(reading.gpuShare, 0.5);
  EXPECT_EQ(reading.cpuCelsius, 50.0);
  EXPECT_EQ(reading.tasks.size(), 1U);
  EXPECT_GT(sockets.questions, 0);
}

TEST_F(PowerMeterTest, TemperaturesAreThoseAtTheEndOfTheInterval) {
  tree.file("sys/class/hwmon/hwmon0/name", "coretemp\n")
      .file("sys/class/hwmon/hwmon0/temp1_input", "50000\n");
  PowerMeter measured = meter({.sensors = true});
  duringWait = [&] { tree.file("sys/class/hwmon/hwmon0/temp1_input", "60000\n"); };
  EXPECT_EQ(measured.next(1.0).cpuCelsius, 60.0);
}

}  // namespace
}  // namespace monitor::platform
