// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/ProcessAudioRoute.h"

#include <gmock/gmock.h>

#include <memory>
#include <new>
#include <optional>

#include "MonitorAudioEngine/AudioRouteError.h"
#include "MonitorCore/MonitorError.h"
#include "Tests/Fakes/FakeAudioHardware.h"

namespace {
bool memoryIsShort = false;
}  // namespace

// The gain state is the only thing here that is allocated without throwing.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (memoryIsShort) return nullptr;
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace monitor {
namespace {

using fakes::StereoBlock;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

const std::vector<ProcessKey> kKeys{{812, 5000}};
constexpr double kNow = 1000.0;

class ProcessAudioRouteTest : public testing::Test {
 protected:
  std::unique_ptr<ProcessAudioRoute> make() {
    return std::make_unique<ProcessAudioRoute>(
        *view_, kKeys, std::vector{process_}, hardware_.defaultOutput(),
        [this] { return "uuid-" + std::to_string(++uuids_); }, kNow);
  }
  // The error of a route that cannot be built, after which nothing is left.
  std::optional<AudioRouteError> refusal() {
    hardware_.forgetCalls();
    try {
      (void)make();
    } catch (const AudioRouteError& error) {
      EXPECT_TRUE(hardware_.isClean());
      EXPECT_FALSE(hardware_.isMuted(process_));
      return error;
    }
    return std::nullopt;
  }
  [[nodiscard]] fakes::FakeAudioHardware::Device& output() {
    return hardware_.device(hardware_.defaultOutput());
  }
  [[nodiscard]] AudioObjectID device() const { return hardware_.aggregates().begin()->first; }

  fakes::FakeAudioHardware hardware_;
  std::shared_ptr<AudioHardware> view_ = hardware_.openView();
  AudioObjectID process_ = hardware_.addProcess(812);
  int uuids_ = 0;
};

TEST_F(ProcessAudioRouteTest, IsBuiltInOrder) {
  const auto route = make();
  const std::string output = std::to_string(hardware_.defaultOutput());
  const std::string tap = std::to_string(hardware_.taps().begin()->first);
  const std::string aggregate = std::to_string(device());
  EXPECT_THAT(hardware_.callTexts(),
              ElementsAre("propertyString " + output + " uid ", "propertyData " + output + " sfmt",
                          "createProcessTap", "propertyData " + tap + " tfmt", "createAggregateDevice",
                          "createIOProc " + aggregate, "startDevice " + aggregate));
  EXPECT_TRUE(hardware_.isMuted(process_));
}

TEST_F(ProcessAudioRouteTest, DescribesAPrivateTapThatMutes) {
  const auto route = make();
  ProcessTapDescription expected;
  expected.name = "Quorvantis App Volume";
  expected.uuid = "uuid-1";
  expected.processes = {process_};
  expected.deviceUID = "speakers";
  expected.stream = 0;
  expected.isPrivate = true;
  expected.muteBehavior = TapMuteBehavior::MutedWhenTapped;
  ASSERT_EQ(hardware_.taps().size(), 1U);
  EXPECT_EQ(hardware_.taps().begin()->second.description, expected);
}

TEST_F(ProcessAudioRouteTest, DescribesAPrivateDeviceFromTheTapToTheOutput) {
  const auto route = make();
  AggregateDeviceDescription expected;
  expected.name = "Quorvantis private app output";
  expected.uid = "uuid-2";
  expected.isPrivate = true;
  expected.isStacked = false;
  expected.master = "speakers";
  expected.subdevices = {{"speakers", 0, 2}};
  expected.taps = {{"uuid-1", true}};
  expected.tapAutoStart = false;
  ASSERT_EQ(hardware_.aggregates().size(), 1U);
  EXPECT_EQ(hardware_.aggregates().begin()->second.description, expected);
}

TEST_F(ProcessAudioRouteTest, StartsAtFullGainAndRampsToTheGainThatIsSet) {
  const auto route = make();
  EXPECT_EQ(route->gain(), 1.0);
  const StereoBlock ones{{1.0F, 1.0F, 1.0F, 1.0F}, {-1.0F, -1.0F, -1.0F, -1.0F}};
  EXPECT_EQ(hardware_.runCycle(device(), ones), ones);
  route->setGain(0.5);
  EXPECT_EQ(route->gain(), 0.5);
  EXPECT_EQ(hardware_.runCycle(device(), ones),
            (StereoBlock{{0.875F, 0.75F, 0.625F, 0.5F}, {-0.875F, -0.75F, -0.625F, -0.5F}}));
}

TEST_F(ProcessAudioRouteTest, TearsDownInOrderAndOnce) {
  const auto route = make();
  const std::string aggregate = std::to_string(device());
  const std::string tap = std::to_string(hardware_.taps().begin()->first);
  hardware_.forgetCalls();
  route->tearDown();
  EXPECT_THAT(hardware_.callTexts(),
              ElementsAre("stopDevice " + aggregate, "destroyIOProc " + aggregate,
                          "destroyAggregateDevice " + aggregate, "destroyProcessTap " + tap));
  EXPECT_TRUE(hardware_.isClean());
  EXPECT_FALSE(hardware_.isMuted(process_));
  route->tearDown();
  EXPECT_EQ(hardware_.calls().size(), 4U);
}

TEST_F(ProcessAudioRouteTest, ReleasingItTearsItDown) {
  (void)make();
  EXPECT_TRUE(hardware_.isClean());
}

TEST_F(ProcessAudioRouteTest, TearsDownToTheEndWhateverFails) {
  const auto route = make();
  hardware_.forgetCalls();
  hardware_.failFrom(1, -32);
  route->tearDown();
  EXPECT_THAT(hardware_.routeCalls(),
              ElementsAre("stopDevice", "destroyIOProc", "destroyAggregateDevice", "destroyProcessTap"));
  EXPECT_TRUE(hardware_.isClean());
}

TEST_F(ProcessAudioRouteTest, WhicheverCallFailsNothingIsLeft) {
  const std::vector<std::vector<std::string>> expected{
      {},
      {},
      {"createProcessTap"},
      {"createProcessTap", "destroyProcessTap"},
      {"createProcessTap", "createAggregateDevice", "destroyProcessTap"},
      {"createProcessTap", "createAggregateDevice", "createIOProc", "destroyAggregateDevice",
       "destroyProcessTap"},
      {"createProcessTap", "createAggregateDevice", "createIOProc", "startDevice", "stopDevice",
       "destroyIOProc", "destroyAggregateDevice", "destroyProcessTap"},
  };
  for (std::size_t call = 1; call <= expected.size(); ++call) {
    hardware_.failCall(call, -5);
    const auto error = refusal();
    ASSERT_TRUE(error) << call;
    EXPECT_EQ(*error, AudioRouteError::system(-5)) << call;
    EXPECT_THAT(hardware_.routeCalls(), ElementsAreArray(expected[call - 1])) << call;
  }
  EXPECT_NE(make(), nullptr) << "there is no eighth call";
}

TEST_F(ProcessAudioRouteTest, TheCauseIsThatOfTheCallThatFailedFirst) {
  hardware_.failFrom(7, -32);
  hardware_.failureText = "The server is gone.";
  const auto error = refusal();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->cause().code, -32);
  EXPECT_THAT(error->cause().text, testing::StartsWith("startDevice"));
}

TEST_F(ProcessAudioRouteTest, AnOutputThatIsNotStereoFloatIsRefusedBeforeAnythingIsMade) {
  const auto refused = [this](const AudioStreamFormat& format) {
    output().format = format;
    const auto error = refusal();
    EXPECT_THAT(hardware_.routeCalls(), IsEmpty());
    EXPECT_EQ(error, AudioRouteError::invalidFormat());
    return error ? error->cause().text : std::string();
  };
  const std::string prefix =
      "output device " + std::to_string(hardware_.defaultOutput()) + " \"speakers\" has ";
  const std::string suffix = ", expected 2 channels of 32-bit float";
  EXPECT_EQ(refused(fakes::floatFormat(1, 48'000.0)),
            prefix + "1 channel of 32-bit float at 48000 Hz" + suffix);
  EXPECT_EQ(refused(fakes::floatFormat(6, 44'100.0)),
            prefix + "6 channels of 32-bit float at 44100 Hz" + suffix);
  EXPECT_EQ(refused(fakes::floatFormat(0, 48'000.0)),
            prefix + "0 channels of 32-bit float at 48000 Hz" + suffix);
  AudioStreamFormat format = fakes::floatFormat(2, 48'000.0);
  format.bitsPerChannel = 16;
  format.formatFlags = 12;
  EXPECT_EQ(refused(format), prefix + "2 channels of 16-bit integer at 48000 Hz" + suffix);
  format = fakes::floatFormat(2, 48'000.0);
  format.bitsPerChannel = 64;
  EXPECT_EQ(refused(format), prefix + "2 channels of 64-bit float at 48000 Hz" + suffix);
  format = fakes::floatFormat(2, 48'000.0);
  format.formatFlags = 0xFFFF'FFFEU;
  EXPECT_EQ(refused(format), prefix + "2 channels of 32-bit integer at 48000 Hz" + suffix);
  format = fakes::floatFormat(2, 48'000.0);
  format.formatID = fourCharacterCode("ac-3");
  EXPECT_EQ(refused(format), prefix + "2 channels of format \"ac-3\" at 48000 Hz" + suffix);
}

TEST_F(ProcessAudioRouteTest, OtherFormatFlagsAndRatesAreAccepted) {
  for (const double rate : {8'000.0, 44'100.0, 192'000.0}) {
    output().format = fakes::floatFormat(2, rate);
    output().format.formatFlags = 0x29;
    EXPECT_NE(make(), nullptr);
  }
}

TEST_F(ProcessAudioRouteTest, AnOutputWithoutUidIsRefused) {
  output().uid.reset();
  EXPECT_EQ(refusal(), AudioRouteError::invalidFormat());
}

TEST_F(ProcessAudioRouteTest, ATapThatIsNotStereoFloatAtTheOutputsRateIsRefusedAndDestroyed) {
  std::vector<AudioStreamFormat> formats{fakes::floatFormat(1, 48'000.0), fakes::floatFormat(2, 44'100.0),
                                         fakes::floatFormat(2, 48'000.001)};
  formats.push_back(fakes::floatFormat(2, 48'000.0));
  formats.back().bitsPerChannel = 16;
  formats.back().formatFlags = 12;
  formats.push_back(fakes::floatFormat(2, 48'000.0));
  formats.back().formatFlags = 0;
  formats.push_back(fakes::floatFormat(2, 48'000.0));
  formats.back().formatID = 0;
  for (const AudioStreamFormat& format : formats) {
    hardware_.tapFormat = format;
    const auto error = refusal();
    EXPECT_EQ(error, AudioRouteError::invalidFormat());
    EXPECT_THAT(hardware_.routeCalls(), ElementsAre("createProcessTap", "destroyProcessTap"));
  }
  hardware_.tapFormat = fakes::floatFormat(2, 44'100.0);
  EXPECT_EQ(
      refusal()->cause().text,
      "the tap on output device " + std::to_string(hardware_.defaultOutput()) +
          " \"speakers\" delivers 2 channels of 32-bit float at 44100 Hz, expected 2 channels of 32-bit "
          "float at 48000 Hz");
}

TEST_F(ProcessAudioRouteTest, WithoutMemoryForTheGainStateNoAudioCallIsMade) {
  memoryIsShort = true;
  std::optional<MonitorError> caught;
  try {
    (void)make();
  } catch (const MonitorError& error) {
    caught = error;
  }
  memoryIsShort = false;
  ASSERT_TRUE(caught);
  EXPECT_EQ(caught->domain(), "NSCocoaErrorDomain");
  EXPECT_EQ(caught->code(), 4866);
  EXPECT_THAT(hardware_.calls(), IsEmpty());
}

TEST_F(ProcessAudioRouteTest, IsActiveWhenItRenderedOrItsProgramReportsNoOutput) {
  const auto route = make();
  EXPECT_EQ(route->lastActivity(), kNow);
  route->observe(true, kNow + 1.0);
  EXPECT_EQ(route->lastActivity(), kNow) << "nothing was rendered";
  hardware_.runCycles();
  route->observe(true, kNow + 2.0);
  EXPECT_EQ(route->lastActivity(), kNow + 2.0);
  route->observe(true, kNow + 3.0);
  EXPECT_EQ(route->lastActivity(), kNow + 2.0) << "the same count again";
  route->observe(false, kNow + 4.0);
  EXPECT_EQ(route->lastActivity(), kNow + 4.0);
}

TEST_F(ProcessAudioRouteTest, CountsTheSecondsOfUnbrokenOutput) {
  const auto route = make();
  EXPECT_EQ(route->outputSeconds(kNow + 1.0), 0.0) << "nobody said that the program reports output";
  route->noteOutput(true, kNow + 1.0);
  EXPECT_EQ(route->outputSeconds(kNow + 1.0), 0.0);
  route->observe(true, kNow + 3.0);
  EXPECT_EQ(route->outputSeconds(kNow + 4.0), 3.0) << "from the first time on";
  route->noteOutput(false, kNow + 5.0);
  EXPECT_EQ(route->outputSeconds(kNow + 6.0), 0.0);
  route->observe(true, kNow + 7.0);
  EXPECT_EQ(route->outputSeconds(kNow + 9.0), 2.0);
  route->observe(false, kNow + 9.0);
  EXPECT_EQ(route->outputSeconds(kNow + 9.0), 0.0);
}

TEST_F(ProcessAudioRouteTest, LetsTheSilenceWatchHearWhatItHears) {
  SilenceWatch silence;
  const ProcessAudioRoute route(
      *view_, kKeys, {process_}, hardware_.defaultOutput(), [] { return "uuid"; }, kNow, &silence);
  (void)hardware_.runCycle(device(), StereoBlock{{0.0F}, {0.0F}});
  EXPECT_FALSE(silence.heardSound());
  EXPECT_EQ(hardware_.runCycle(device(), StereoBlock{{0.0F}, {0.5F}}), (StereoBlock{{0.0F}, {0.5F}}));
  EXPECT_TRUE(silence.heardSound());
}

TEST_F(ProcessAudioRouteTest, FailsWhenTheBuffersDoNotFit) {
  const auto route = make();
  EXPECT_FALSE(route->failed());
  MonitorAudioBufferList none{};
  EXPECT_TRUE(hardware_.runCycle(device(), &none, &none));
  EXPECT_TRUE(route->failed());
}

}  // namespace
}  // namespace monitor
