// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/RouteMixer.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <numeric>
#include <thread>

namespace monitor::platform::test {
namespace {

using testing::Each;
using testing::ElementsAre;

// A port is a vector of samples; an empty one has no buffer this cycle.
using Samples = std::vector<float>;

void* bufferOf(void* port, std::uint32_t) {
  auto* samples = static_cast<Samples*>(port);
  return samples == nullptr || samples->empty() ? nullptr : samples->data();
}

class RouteMixerTest : public testing::Test {
 protected:
  RouteMixerTest() {
    mixer.setOutput(0, &left);
    mixer.setOutput(1, &right);
  }
  std::size_t addSlot(Samples& first, Samples& second, bool open = true) {
    const std::size_t slot = mixer.addSlot({&first, &second});
    mixer.setGate(slot, open);
    return slot;
  }
  // Copies its input, and keeps the lists' shapes.
  void attachCopy() {
    mixer.attach(std::make_shared<const AudioIOBlock>(
        [this](const MonitorAudioBufferList* input, MonitorAudioBufferList* output) {
          ++entered;
          inputs = input->mNumberBuffers;
          for (std::uint32_t index = 0; index < output->mNumberBuffers; ++index) {
            const MonitorAudioBuffer& from = input->mBuffers[index];
            MonitorAudioBuffer& to = output->mBuffers[index];
            EXPECT_EQ(from.mNumberChannels, 1U);
            EXPECT_EQ(to.mNumberChannels, 1U);
            ASSERT_EQ(from.mDataByteSize, to.mDataByteSize);
            ASSERT_NE(from.mData, to.mData);
            std::copy_n(static_cast<const float*>(from.mData), from.mDataByteSize / sizeof(float),
                        static_cast<float*>(to.mData));
          }
        }));
  }

  Samples left = Samples(4, 9.0F);
  Samples right = Samples(4, 9.0F);
  RouteMixer mixer{2, &bufferOf};
  int entered = 0;
  std::uint32_t inputs = 0;
};

TEST_F(RouteMixerTest, BlockGetsABufferForEachChannelOfEqualShape) {
  Samples a{1, 2, 3, 4};
  Samples b{5, 6, 7, 8};
  addSlot(a, b);
  attachCopy();
  mixer.cycle(4);
  EXPECT_EQ(inputs, 2U);
  EXPECT_EQ(left, a);
  EXPECT_EQ(right, b);
  EXPECT_EQ(mixer.rendered(), 1U);
}

TEST_F(RouteMixerTest, ClosedGateIsSilence) {
  Samples a{1, 2, 3, 4};
  const std::size_t slot = addSlot(a, a, false);
  attachCopy();
  mixer.cycle(4);
  EXPECT_THAT(left, Each(0.0F));
  mixer.setGate(slot, true);
  EXPECT_TRUE(mixer.gate(slot));
  mixer.cycle(4);
  EXPECT_EQ(left, a);
}

TEST_F(RouteMixerTest, UnlinkedInputsAreZeroBuffersAndTheBlockStillRuns) {
  attachCopy();
  mixer.cycle(4);
  EXPECT_EQ(entered, 1);
  EXPECT_THAT(left, Each(0.0F));
  Samples a{1, 2, 3, 4};
  Samples unlinked;
  addSlot(a, unlinked);
  mixer.cycle(4);
  EXPECT_EQ(left, a);
  EXPECT_THAT(right, Each(0.0F));
}

TEST_F(RouteMixerTest, OpenStreamsAreSummed) {
  Samples a{1, 2, 3, 4};
  Samples b{0.5F, 0.25F, 0.125F, 0};
  Samples c{10, 20, 30, 40};
  addSlot(a, b);
  addSlot(b, b);
  addSlot(c, c, false);
  addSlot(c, a);
  attachCopy();
  mixer.cycle(4);
  EXPECT_THAT(left, ElementsAre(11.5F, 22.25F, 33.125F, 44.0F));
  EXPECT_THAT(right, ElementsAre(2.0F, 2.5F, 3.25F, 4.0F));
  EXPECT_THAT(a, ElementsAre(1, 2, 3, 4)) << "the streams' own buffers are not written";
}

TEST_F(RouteMixerTest, CycleWithoutAnOutputBufferIsSkipped) {
  Samples a{1, 2, 3, 4};
  addSlot(a, a);
  attachCopy();
  right.clear();
  mixer.cycle(4);
  EXPECT_EQ(entered, 0);
  EXPECT_THAT(left, Each(9.0F));
  EXPECT_EQ(mixer.rendered(), 0U);
}

TEST_F(RouteMixerTest, CycleWithoutABlockIsSilent) {
  Samples a{1, 2, 3, 4};
  addSlot(a, a);
  mixer.cycle(4);
  EXPECT_THAT(left, Each(0.0F));
  EXPECT_THAT(right, Each(0.0F));
}

TEST_F(RouteMixerTest, DetachedBlockIsNeverEnteredAndItsOwnerIsLetGo) {
  auto owned = std::make_shared<int>(5);
  const std::weak_ptr<int> alive = owned;
  mixer.attach(std::make_shared<const AudioIOBlock>(
      [this, owned = std::move(owned)](const MonitorAudioBufferList*, MonitorAudioBufferList*) {
        ++entered;
      }));
  mixer.cycle(4);
  EXPECT_TRUE(mixer.detach());
  EXPECT_TRUE(alive.expired());
  mixer.cycle(4);
  EXPECT_EQ(entered, 1);
}

TEST_F(RouteMixerTest, CycleOfNoFramesOrTooManyDoesNotRunTheBlock) {
  attachCopy();
  mixer.cycle(0);
  EXPECT_EQ(entered, 0);
  left.assign(RouteMixer::kMostFrames + 1, 9.0F);
  right = left;
  mixer.cycle(RouteMixer::kMostFrames + 1);
  EXPECT_EQ(entered, 0);
  EXPECT_THAT(left, Each(0.0F)) << "silence rather than old samples";
  left.assign(RouteMixer::kMostFrames, 9.0F);
  right = left;
  mixer.cycle(RouteMixer::kMostFrames);
  EXPECT_EQ(entered, 1);
}

TEST_F(RouteMixerTest, GatesOfUnknownSlotsAreIgnored) {
  mixer.setGate(0, true);
  EXPECT_FALSE(mixer.gate(0));
}

TEST(RouteMixer, HoldsItsMostSlots) {
  Samples output(4, 9.0F);
  Samples one{1, 1, 1, 1};
  RouteMixer mixer{1, &bufferOf};
  mixer.setOutput(0, &output);
  for (std::size_t slot = 0; slot < RouteMixer::kMostSlots; ++slot) {
    EXPECT_EQ(mixer.addSlot({&one}), slot);
    mixer.setGate(slot, true);
  }
  mixer.attach(std::make_shared<const AudioIOBlock>(
      [](const MonitorAudioBufferList* input, MonitorAudioBufferList* out) {
        std::copy_n(static_cast<const float*>(input->mBuffers[0].mData), 4,
                    static_cast<float*>(out->mBuffers[0].mData));
      }));
  mixer.cycle(4);
  EXPECT_THAT(output, Each(static_cast<float>(RouteMixer::kMostSlots)));
}

TEST(RouteMixer, SixChannelsAreSixBuffers) {
  std::vector<Samples> outputs(6, Samples(2, 9.0F));
  std::vector<Samples> stream(6);
  RouteMixer mixer{6, &bufferOf};
  std::vector<RouteMixer::Port> ports;
  for (std::size_t channel = 0; channel < 6; ++channel) {
    stream[channel] = Samples(2, static_cast<float>(channel));
    ports.push_back(&stream[channel]);
    mixer.setOutput(channel, &outputs[channel]);
  }
  mixer.setGate(mixer.addSlot(ports), true);
  mixer.attach(std::make_shared<const AudioIOBlock>(
      [](const MonitorAudioBufferList* input, MonitorAudioBufferList* output) {
        ASSERT_EQ(input->mNumberBuffers, 6U);
        for (std::uint32_t index = 0; index < 6; ++index) {
          std::copy_n(static_cast<const float*>(input->mBuffers[index].mData), 2,
                      static_cast<float*>(output->mBuffers[index].mData));
        }
      }));
  mixer.cycle(2);
  EXPECT_EQ(outputs, stream);
}

// The realtime thread runs without a pause while everything is changed around it.
TEST_F(RouteMixerTest, ControlThreadMayChangeEverythingWhileCyclesRun) {
  std::vector<Samples> ports(64, Samples(4, 1.0F));
  std::atomic<bool> stop{false};
  std::atomic<bool> blockAllowed{false};
  std::atomic<int> strayEntries{0};
  std::thread realtime{[&] {
    while (!stop.load()) mixer.cycle(4);
  }};
  for (std::size_t round = 0; round < ports.size(); ++round) {
    blockAllowed = true;
    mixer.attach(std::make_shared<const AudioIOBlock>(
        [&](const MonitorAudioBufferList* input, MonitorAudioBufferList*) {
          if (!blockAllowed.load()) ++strayEntries;
          const float sample = static_cast<const float*>(input->mBuffers[0].mData)[0];
          if (sample < 0.0F || sample > 64.0F) ++strayEntries;
        }));
    const std::size_t slot = mixer.addSlot({&ports[round], &ports[round]});
    mixer.setGate(slot, true);
    const auto before = mixer.rendered();
    while (mixer.rendered() < before + 3) std::this_thread::yield();
    mixer.setGate(slot, round % 2 == 0);
    ASSERT_TRUE(mixer.detach());
    blockAllowed = false;
  }
  stop = true;
  realtime.join();
  EXPECT_EQ(strayEntries, 0);
}

TEST_F(RouteMixerTest, HungCycleIsReportedAndItsBlockKept) {
  std::atomic<bool> inside{false};
  std::atomic<bool> finish{false};
  auto owned = std::make_shared<int>(5);
  const std::weak_ptr<int> alive = owned;
  mixer.attach(std::make_shared<const AudioIOBlock>(
      [&, owned = std::move(owned)](const MonitorAudioBufferList*, MonitorAudioBufferList*) {
        inside = true;
        while (!finish.load()) std::this_thread::yield();
      }));
  std::thread realtime{[&] { mixer.cycle(4); }};
  while (!inside.load()) std::this_thread::yield();
  EXPECT_FALSE(mixer.detach());
  EXPECT_FALSE(alive.expired());
  finish = true;
  realtime.join();
  mixer.cycle(4);
}

TEST_F(RouteMixerTest, DenormalAndUnusualSamplesPassUnchanged) {
  Samples a{std::numeric_limits<float>::denorm_min(), -0.0F, 1e30F, -std::numeric_limits<float>::min()};
  addSlot(a, a);
  attachCopy();
  mixer.cycle(4);
  EXPECT_EQ(left, a);
  EXPECT_TRUE(std::signbit(left[1]));
}

}  // namespace
}  // namespace monitor::platform::test
