// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/Players/PlayerOptions.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <vector>

#include "Tools/AudioLab/CounterSignal.h"

namespace monitor::lab {
namespace {

TEST(CounterSignal, IsExactAndNeverZero) {
  EXPECT_EQ(counterValue(0), 1.0F / 8192.0F);
  EXPECT_EQ(counterValue(4095), 0.5F);
  EXPECT_EQ(counterValue(4096), counterValue(0));
  EXPECT_EQ(counterValue(1'000'003), counterValue(1'000'003 % 4096));
}

TEST(PlayerSignal, GoesOnFromCallToCallOnAllChannels) {
  std::vector<float> samples(8);
  std::uint64_t next = 4094;
  fillCounter(samples.data(), 2, {}, next);
  fillCounter(samples.data() + 4, 2, {}, next);
  EXPECT_EQ(next, 4098U);
  for (std::size_t frame = 0; frame < 4; ++frame) {
    EXPECT_EQ(samples[2 * frame], counterValue(4094 + frame));
    EXPECT_EQ(samples[2 * frame + 1], samples[2 * frame]);
  }
}

TEST(PlayerSignal, LeavesAllChannelsButTheChosenOneSilent) {
  std::vector<float> samples(4, 9.0F);
  std::uint64_t next = 0;
  PlayerOptions options;
  options.channel = 1;
  fillCounter(samples.data(), 2, options, next);
  EXPECT_EQ(samples, (std::vector<float>{0.0F, counterValue(0), 0.0F, counterValue(1)}));
}

TEST(PlayerOptions, SplitsPropertiesAtTheFirstEqualsSign) {
  EXPECT_EQ(splitProperty("a=b=c").key, "a");
  EXPECT_EQ(splitProperty("a=b=c").value, "b=c");
  EXPECT_EQ(splitProperty("alone").key, "alone");
  EXPECT_EQ(splitProperty("alone").value, "");
}

TEST(CommandReader, CutsLinesOutOfWhateverArrives) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  CommandReader reader;
  std::string line;
  const auto write = [&](const std::string& text) {
    ASSERT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    ASSERT_TRUE(reader.read(ends[0]));
  };
  write("op");
  EXPECT_FALSE(reader.next(line));
  write("en\npause\nres");
  EXPECT_TRUE(reader.next(line));
  EXPECT_EQ(line, "open");
  EXPECT_TRUE(reader.next(line));
  EXPECT_EQ(line, "pause");
  EXPECT_FALSE(reader.next(line));
  ::close(ends[1]);
  EXPECT_FALSE(reader.read(ends[0]));
  ::close(ends[0]);
}

}  // namespace
}  // namespace monitor::lab
