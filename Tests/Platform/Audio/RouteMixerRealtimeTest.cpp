// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <vector>

#include "MonitorAudioEngine/AudioGainBuffer.h"
#include "MonitorAudioEngine/MonitorGain.h"
#include "Platform/Linux/Audio/RouteMixer.h"
#include "Platform/Linux/Audio/StoppableBlock.h"
#include "Tests/Support/RealtimeTrap.h"

namespace monitor::platform::test {
namespace {

using Samples = std::vector<float>;

void* bufferOf(void* port, std::uint32_t) {
  auto* samples = static_cast<Samples*>(port);
  return samples->empty() ? nullptr : samples->data();
}

// The whole realtime callback of a route: gather, sum and the gain render, as the audio server's thread runs
// it.
class RouteMixerRealtimeTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    for (const std::string& gap : monitor::test::realtimeTrapGaps())
      std::cout << "realtime trap: " << gap << '\n';
  }
  RouteMixerRealtimeTest() {
    mixer.setOutput(0, &left);
    mixer.setOutput(1, &right);
    mixer.attach(std::make_shared<const AudioIOBlock>(
        [state = gain.pointer()](const MonitorAudioBufferList* input, MonitorAudioBufferList* output) {
          MonitorGainRender(state, input, output);
        }));
  }
  void expectNothingCaught() {
    const auto violations = monitor::test::runUnderRealtimeTrap([this] {
      for (int cycle = 0; cycle < 8; ++cycle) mixer.cycle(kFrames);
    });
    EXPECT_TRUE(violations.empty()) << testing::PrintToString(violations);
  }

  static constexpr std::uint32_t kFrames = 256;
  Samples left = Samples(kFrames);
  Samples right = Samples(kFrames);
  Samples silent;
  std::vector<Samples> streams = std::vector<Samples>(64, Samples(kFrames, 0.25F));
  AudioGainBuffer gain;
  RouteMixer mixer{2, &bufferOf};
};

TEST_F(RouteMixerRealtimeTest, CallbackNeitherAllocatesNorLocksNorCallsTheSystem) {
  expectNothingCaught();
  for (auto& stream : streams) mixer.setGate(mixer.addSlot({&stream, &stream}), true);
  MonitorGainSet(gain.pointer(), 0.4F);
  expectNothingCaught();
  EXPECT_FLOAT_EQ(left[kFrames - 1], 64 * 0.25F * 0.4F);
  EXPECT_EQ(MonitorGainFrames(gain.pointer()), 16U);
}

TEST_F(RouteMixerRealtimeTest, ClosedGatesUnlinkedPortsAndMissingOutputsAreAsWellBehaved) {
  mixer.addSlot({&streams[0], &streams[0]});
  mixer.setGate(mixer.addSlot({&silent, &streams[1]}), true);
  expectNothingCaught();
  right.clear();
  expectNothingCaught();
  EXPECT_TRUE(mixer.detach());
  expectNothingCaught();
}

TEST_F(RouteMixerRealtimeTest, StoppableBlocksAreAsWellBehaved) {
  const auto block = std::make_shared<StoppableBlock>(
      [state = gain.pointer()](const MonitorAudioBufferList* input, MonitorAudioBufferList* output) {
        MonitorGainRender(state, input, output);
      });
  mixer.attach(std::make_shared<const AudioIOBlock>(
      [block](const MonitorAudioBufferList* input, MonitorAudioBufferList* output) {
        block->run(input, output);
      }));
  expectNothingCaught();
  EXPECT_TRUE(block->stop());
  expectNothingCaught();
  EXPECT_EQ(MonitorGainFrames(gain.pointer()), 8U);
}

TEST_F(RouteMixerRealtimeTest, DenormalSamplesAreAsWellBehaved) {
  for (auto& stream : streams) stream.assign(kFrames, 1e-40F);
  for (auto& stream : streams) mixer.setGate(mixer.addSlot({&stream, &stream}), true);
  MonitorGainSet(gain.pointer(), 0.4F);
  expectNothingCaught();
}

}  // namespace
}  // namespace monitor::platform::test
