// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <iostream>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "MonitorAudioEngine/MonitorGain.h"
#include "MonitorAudioEngine/MonitorGainKernel.h"
#include "Tests/MonitorAudioEngine/GainBuffers.h"
#include "Tests/Support/RealtimeTrap.h"

namespace monitor {
namespace {

using test::BufferList;
using test::bufferOf;

class MonitorGainRealtimeTest : public testing::TestWithParam<const gain::Kernel*> {
 protected:
  static void SetUpTestSuite() {
    for (const std::string& gap : test::realtimeTrapGaps()) std::cout << "realtime trap: " << gap << '\n';
  }

  // Steady renders and ramps, of long buffers each in both directions.
  void expectNothingCaught(BufferList& input, BufferList& output) {
    const std::unique_ptr<MonitorGainState, void (*)(MonitorGainState*)> state(gain::createState(*GetParam()),
                                                                               MonitorGainDestroy);
    const auto violations = test::runUnderRealtimeTrap([&] {
      for (const float target : {1.0F, 1.0F, 0.25F, 0.25F, 0.0F, 0.5F}) {
        MonitorGainSet(state.get(), target);
        MonitorGainRender(state.get(), input.get(), output.get());
      }
      sink_ += MonitorGainFrames(state.get()) + (MonitorGainFailed(state.get()) ? 1 : 0);
    });
    EXPECT_TRUE(violations.empty()) << testing::PrintToString(violations);
  }

 private:
  std::uint64_t sink_ = 0;
};

TEST_P(MonitorGainRealtimeTest, RenderNeitherAllocatesNorLocksNorCallsTheSystem) {
  for (const std::uint32_t channels : {1U, 2U, 6U, 4096U}) {
    for (const std::size_t samples : {1U, 511U, 1024U, 8192U, 100'000U}) {
      std::vector<float> in(samples, 0.5F);
      std::vector<float> out(samples);
      BufferList input({bufferOf(channels, in)});
      BufferList output({bufferOf(channels, out)});
      expectNothingCaught(input, output);
    }
  }
}

TEST_P(MonitorGainRealtimeTest, RenderIntoItsOwnInputIsAsWellBehaved) {
  std::vector<float> samples(1024, 0.5F);
  BufferList shared({bufferOf(2, samples)});
  expectNothingCaught(shared, shared);
}

TEST_P(MonitorGainRealtimeTest, FailingRenderIsAsWellBehaved) {
  std::vector<float> in(1024, 0.5F);
  std::vector<float> out(1024);
  BufferList input({bufferOf(2, in)});
  BufferList otherShape({bufferOf(2, std::span(out).first(512))});
  BufferList twoBuffers({bufferOf(2, out), bufferOf(2, out)});
  BufferList none({});
  expectNothingCaught(input, otherShape);
  expectNothingCaught(input, twoBuffers);
  expectNothingCaught(input, none);
}

const gain::Kernel& fastestWithoutAvx512() {
  gain::CpuFeatures features = gain::cpuFeatures();
  features.avx512f = false;
  return gain::fastestKernel(features);
}

INSTANTIATE_TEST_SUITE_P(Kernels, MonitorGainRealtimeTest,
                         testing::Values(&gain::kPortableKernel, &gain::fastestKernel({}),
                                         &fastestWithoutAvx512(), &gain::fastestKernel(gain::cpuFeatures())),
                         [](const auto& info) { return std::to_string(info.index) + info.param->name; });

}  // namespace
}  // namespace monitor
