// SPDX-License-Identifier: MIT
#include "Tests/Fakes/FakeAudioHardware.h"

#include <gmock/gmock.h>

#include "Tests/Fakes/VirtualTime.h"

namespace monitor::fakes {
namespace {

using testing::ElementsAre;

// What the contract of the port does not speak of: the script, the failures and the record of calls.
class FakeAudioHardwareTest : public testing::Test {
 protected:
  // Builds a running route that halves, and gives its device.
  AudioObjectID route(AudioHardware& view, std::vector<AudioObjectID> processes) {
    AudioObjectID tap = 0;
    EXPECT_EQ(view.createProcessTap({"tap", "tap-uuid", std::move(processes), "speakers", 0, true,
                                     TapMuteBehavior::MutedWhenTapped},
                                    tap),
              0);
    AudioObjectID device = 0;
    EXPECT_EQ(view.createAggregateDevice({"device",
                                          "device-uid",
                                          true,
                                          false,
                                          "speakers",
                                          {{"speakers", 0, 2}},
                                          {{"tap-uuid", true}},
                                          false},
                                         device),
              0);
    const auto halve = [](const MonitorAudioBufferList* input, MonitorAudioBufferList* output) {
      for (std::uint32_t index = 0; index < output->mNumberBuffers; ++index) {
        const MonitorAudioBuffer& from = input->mBuffers[index];
        const MonitorAudioBuffer& to = output->mBuffers[index];
        for (std::size_t sample = 0; sample < to.mDataByteSize / sizeof(float); ++sample) {
          static_cast<float*>(to.mData)[sample] = static_cast<const float*>(from.mData)[sample] / 2.0F;
        }
      }
    };
    AudioIOProcID procedure = 0;
    EXPECT_EQ(view.createIOProc(device, halve, procedure), 0);
    EXPECT_EQ(view.startDevice(device, procedure), 0);
    return device;
  }

  FakeAudioHardware hardware_;
};

TEST_F(FakeAudioHardwareTest, PlaysATappedProcessThroughTheProcedure) {
  const auto view = hardware_.openView();
  const AudioObjectID process = hardware_.addProcess(812);
  EXPECT_FALSE(hardware_.isMuted(process));
  const AudioObjectID device = route(*view, {process});
  EXPECT_TRUE(hardware_.isMuted(process));
  EXPECT_EQ(hardware_.routeOf(process), device);
  const auto output = hardware_.runCycle(device, StereoBlock{{1.0F, 2.0F}, {3.0F, 4.0F}});
  EXPECT_EQ(output, (StereoBlock{{0.5F, 1.0F}, {1.5F, 2.0F}}));
}

TEST_F(FakeAudioHardwareTest, RecordsCallsInOrderWithTheirStatus) {
  const auto view = hardware_.openView();
  std::uint32_t size = 0;
  EXPECT_EQ(view->propertyDataSize(audio::kSystemObject, audio::kProcessObjectList, size), 0);
  EXPECT_NE(view->propertyDataSize(77, audio::kProcessPID, size), 0);
  EXPECT_THAT(hardware_.callTexts(), ElementsAre("propertyDataSize 1 prs#", "propertyDataSize 77 ppid"));
  EXPECT_EQ(hardware_.calls().back().status, FakeAudioHardware::kNoSuchObject);
  EXPECT_EQ(view->lastFailure().code, FakeAudioHardware::kNoSuchObject);
}

TEST_F(FakeAudioHardwareTest, FailsOneCallOrAllFromOneOn) {
  const auto view = hardware_.openView();
  const auto read = [&] {
    std::uint32_t size = 0;
    return view->propertyDataSize(audio::kSystemObject, audio::kDefaultOutputDevice, size);
  };
  hardware_.failCall(2, -5);
  EXPECT_EQ(read(), 0);
  EXPECT_EQ(read(), -5);
  EXPECT_EQ(read(), 0);
  hardware_.failFrom(2, -6);
  EXPECT_EQ(read(), 0);
  EXPECT_EQ(read(), -6);
  EXPECT_EQ(read(), -6);
  hardware_.failNothing();
  EXPECT_EQ(read(), 0);
  hardware_.failMatching("propertyDataSize 1 prs#", -7);
  EXPECT_EQ(read(), 0);
  std::uint32_t size = 0;
  EXPECT_EQ(view->propertyDataSize(audio::kSystemObject, audio::kProcessObjectList, size), -7);
}

TEST_F(FakeAudioHardwareTest, ADestroyThatIsToldToFailTakesEffectAllTheSame) {
  const auto view = hardware_.openView();
  const AudioObjectID device = route(*view, {hardware_.addProcess(812)});
  hardware_.failCall(1, -5);
  EXPECT_EQ(view->destroyAggregateDevice(device), -5);
  EXPECT_TRUE(hardware_.aggregates().empty());
}

TEST_F(FakeAudioHardwareTest, AReturnedServerHasNewIdsAndTellsOnce) {
  VirtualTime time;
  const auto queue = time.makeQueue();
  const auto view = hardware_.openView();
  const AudioObjectID process = hardware_.addProcess(812);
  int notices = 0;
  const auto listener = std::make_shared<const AudioPropertyListener>([&] { ++notices; });
  EXPECT_EQ(view->addPropertyListener(audio::kSystemObject, audio::kProcessObjectList, queue, listener), 0);
  EXPECT_EQ(view->addPropertyListener(audio::kSystemObject, audio::kDefaultOutputDevice, queue, listener), 0);
  route(*view, {process});
  hardware_.loseServer();
  EXPECT_TRUE(hardware_.isClean());
  std::uint32_t size = 0;
  EXPECT_EQ(view->propertyDataSize(audio::kSystemObject, audio::kProcessObjectList, size), -32);
  hardware_.returnServer();
  time.run();
  EXPECT_EQ(notices, 2);
  EXPECT_NE(hardware_.processOf(812), process);
  EXPECT_NE(hardware_.processOf(812), 0U);
  EXPECT_NE(hardware_.defaultOutput(), 0U);
}

}  // namespace
}  // namespace monitor::fakes
