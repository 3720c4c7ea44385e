// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/SilenceWatch.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <vector>

#include "Tests/MonitorAudioEngine/GainBuffers.h"

namespace monitor {
namespace {

using test::BufferList;
using test::bufferOf;

bool isSound(std::vector<float> samples) {
  BufferList list({bufferOf(2, samples)});
  SilenceWatch watch;
  watch.listen(*list.get());
  return watch.heardSound();
}

TEST(SilenceWatchTest, HasHeardNothingInTheBeginning) {
  EXPECT_FALSE(SilenceWatch().heardSound());
}

TEST(SilenceWatchTest, ZerosOfBothSignsAreSilence) {
  EXPECT_FALSE(isSound({0.0F, -0.0F, 0.0F, -0.0F}));
  EXPECT_FALSE(isSound({}));
}

TEST(SilenceWatchTest, OneSampleThatIsNotZeroIsSound) {
  using Limits = std::numeric_limits<float>;
  for (const float sample : {1.0F, -1.0F, Limits::denorm_min(), Limits::infinity(), Limits::quiet_NaN()}) {
    for (std::size_t place = 0; place < 5; ++place) {
      std::vector<float> samples(5);
      samples[place] = sample;
      EXPECT_TRUE(isSound(samples)) << sample << " at " << place;
    }
  }
}

TEST(SilenceWatchTest, EveryBufferOfTheListIsHeard) {
  std::vector<float> silence(4);
  std::vector<float> sound(4, 0.5F);
  BufferList list({bufferOf(1, silence), bufferOf(1, silence), bufferOf(1, sound)});
  SilenceWatch watch;
  watch.listen(*list.get());
  EXPECT_TRUE(watch.heardSound());
}

TEST(SilenceWatchTest, WhatWasHeardOnceIsNeverForgotten) {
  std::vector<float> sound(4, 0.5F);
  std::vector<float> silence(4);
  BufferList loud({bufferOf(1, sound)});
  BufferList quiet({bufferOf(1, silence)});
  SilenceWatch watch;
  watch.listen(*loud.get());
  for (int cycle = 0; cycle < 100; ++cycle) watch.listen(*quiet.get());
  EXPECT_TRUE(watch.heardSound());
}

TEST(SilenceWatchTest, ListsThatNoRenderTakesAreSilence) {
  SilenceWatch watch;
  BufferList none({});
  watch.listen(*none.get());
  BufferList withoutData({{2, 4096, nullptr}});
  watch.listen(*withoutData.get());
  float sample = 0.5F;
  BufferList tooShort({{1, sizeof sample - 1, &sample}});  // not one whole sample
  watch.listen(*tooShort.get());
  EXPECT_FALSE(watch.heardSound());
}

}  // namespace
}  // namespace monitor
