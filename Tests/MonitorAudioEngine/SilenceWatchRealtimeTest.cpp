// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <vector>

#include "MonitorAudioEngine/SilenceWatch.h"
#include "Tests/MonitorAudioEngine/GainBuffers.h"
#include "Tests/Support/RealtimeTrap.h"

namespace monitor {
namespace {

using test::BufferList;
using test::bufferOf;

TEST(SilenceWatchRealtimeTest, ListeningNeitherAllocatesNorLocksNorCallsTheSystem) {
  std::vector<float> silence(100'000);
  std::vector<float> sound(100'000);
  sound.back() = 0.5F;
  BufferList quiet({bufferOf(2, silence), bufferOf(2, silence)});
  BufferList loud({bufferOf(2, silence), bufferOf(2, sound)});
  BufferList none({});
  SilenceWatch watch;
  const auto violations = test::runUnderRealtimeTrap([&] {
    for (BufferList* list : {&quiet, &none, &loud, &quiet}) watch.listen(*list->get());
  });
  EXPECT_TRUE(violations.empty()) << testing::PrintToString(violations);
  EXPECT_TRUE(watch.heardSound());
}

}  // namespace
}  // namespace monitor
