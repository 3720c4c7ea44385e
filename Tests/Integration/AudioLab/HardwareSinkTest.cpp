// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/HardwareSink.h"

#include <gtest/gtest.h>

#include <cmath>

#include "Tools/AudioLab/Analyser.h"
#include "Tools/AudioLab/Graph.h"
#include "Tools/AudioLab/Player.h"
#include "Tools/AudioLab/PrivateStack.h"
#include "Tools/AudioLab/Recorder.h"

namespace monitor::lab {
namespace {

TEST(HardwareSink, IsGivenIntegersAtItsOwnRateWhileTheGraphSeesItsOwn) {
  const PrivateStack stack({.pulse = false});
  const HardwareSink hardware(stack.remote());
  Recorder recorder(stack.remote(), {.sink = "lab-hardware"});
  const Player player(stack, {});
  hardware.waitFrames(8000);
  const std::size_t from = hardware.frames();
  hardware.waitFrames(20'000);
  const auto played = hardware.recording(from);
  EXPECT_NEAR(sawPeriod(played.channels[0]), 4096.0 * 44'100.0 / 48'000.0, 1.0);
  EXPECT_NEAR(effectiveLevel(played.channels[0]), 0.5 / std::sqrt(3.0), 0.02);
  const auto graphSide = recorder.recording(recorder.frames() - 9000);
  EXPECT_EQ(graphSide.rate, 48'000U);
  EXPECT_DOUBLE_EQ(sawPeriod(graphSide.channels[0]), 4096.0);
}

TEST(HardwareSink, GoesWithItsObject) {
  const PrivateStack stack({.pulse = false});
  Graph graph(stack.remote());
  {
    const HardwareSink hardware(stack.remote(), {.positions = {"FL", "FR", "FC", "LFE", "RL", "RR"}});
    EXPECT_TRUE(graph.waitUntil([](const GraphView& now) { return now.defaultSink() == "lab-hardware"; }));
  }
  EXPECT_TRUE(graph.waitUntil([](const GraphView& now) {
    return now.nodeNamed("lab-hardware") == nullptr && now.defaultSink() == "lab-sink-a";
  }));
}

}  // namespace
}  // namespace monitor::lab
