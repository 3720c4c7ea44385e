// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>

#include "Platform/Linux/Audio/AudioHardwareProvider.h"
#include "Tests/Integration/Audio/CollectingQueue.h"
#include "Tests/Integration/Audio/HardwareView.h"
#include "Tools/AudioLab/Environment.h"
#include "Tools/AudioLab/Graph.h"
#include "Tools/AudioLab/Player.h"
#include "Tools/AudioLab/PrivateStack.h"

namespace monitor::platform::test {
namespace {

using lab::Player;
using lab::PlayerKind;
using testing::IsEmpty;
using testing::SizeIs;

class AudioListingTest : public testing::Test {
 protected:
  // Counts the notifications of a property from now on.
  std::shared_ptr<std::atomic<int>> count(AudioObjectID object, const AudioObjectAddress& address) {
    auto calls = std::make_shared<std::atomic<int>>(0);
    EXPECT_EQ(
        view.hardware->addPropertyListener(
            object, address, queue, std::make_shared<const AudioPropertyListener>([calls] { ++*calls; })),
        0);
    return calls;
  }
  bool reaches(const std::shared_ptr<std::atomic<int>>& calls, int wanted) {
    return eventually([&] {
      queue->run();
      return *calls >= wanted;
    });
  }

  lab::PrivateStack stack;
  lab::ScopedEnvironment environment{stack.environment()};
  std::shared_ptr<CollectingQueue> queue = std::make_shared<CollectingQueue>();
  std::shared_ptr<AudioHardwareProvider> provider = makeAudioHardwareProvider();
  HardwareView view{provider->openView()};
};

TEST_F(AudioListingTest, DefaultOutputIsKnownToTheVeryFirstQuestion) {
  const AudioObjectID device = view.defaultDevice();
  EXPECT_EQ(view.uid(device), "lab-sink-a");
  const auto format = view.read<AudioStreamFormat>(device, audio::kStreamFormat);
  ASSERT_TRUE(format);
  EXPECT_EQ(format->sampleRate, 48000.0);
  EXPECT_EQ(format->channelsPerFrame, 2U);
  EXPECT_EQ(format->bitsPerChannel, 32U);
  const auto processes = view.processes();
  ASSERT_TRUE(processes);
  EXPECT_THAT(*processes, IsEmpty());
}

TEST_F(AudioListingTest, ChangeOfTheDefaultOutputIsTold) {
  ASSERT_NE(view.defaultDevice(), 0U);
  const auto calls = count(audio::kSystemObject, audio::kDefaultOutputDevice);
  lab::Graph graph{stack.remote()};
  graph.setDefaultSink("lab-sink-b");
  ASSERT_TRUE(reaches(calls, 1));
  EXPECT_EQ(view.uid(view.defaultDevice()), "lab-sink-b");
}

TEST_F(AudioListingTest, BothKindsOfPlayerAreListedWithTheirPids) {
  Player native{stack, {.name = "Native"}};
  Player pulse{stack, {.kind = PlayerKind::Pulse, .name = "Pulse"}};
  EXPECT_TRUE(eventually([&] { return view.running(native.pid()) && view.running(pulse.pid()); }));
  EXPECT_THAT(*view.processes(), SizeIs(2));
  EXPECT_EQ(view.read<std::uint32_t>(view.processOf(native.pid()), audio::kProcessIsRunningOutput), 1U);
  std::optional<std::string> bundle;
  EXPECT_EQ(view.hardware->propertyString(view.processOf(pulse.pid()), audio::kProcessBundleID, bundle), 0);
  EXPECT_EQ(bundle, "") << "a process without a bundle has an empty identifier, not none";
}

class BothKinds : public AudioListingTest, public testing::WithParamInterface<PlayerKind> {};
INSTANTIATE_TEST_SUITE_P(Players, BothKinds, testing::Values(PlayerKind::Native, PlayerKind::Pulse),
                         [](const auto& kind) {
                           return kind.param == PlayerKind::Native ? "Native" : "Pulse";
                         });

TEST_P(BothKinds, PauseAndResumeAreToldAndKeepTheObject) {
  Player player{stack, {.kind = GetParam(), .name = "Player"}};
  ASSERT_TRUE(eventually([&] { return view.running(player.pid()); }));
  const AudioObjectID object = view.processOf(player.pid());
  const auto list = count(audio::kSystemObject, audio::kProcessObjectList);
  const auto runs = count(object, audio::kProcessIsRunningOutput);
  player.pause();
  ASSERT_TRUE(reaches(list, 1));
  ASSERT_TRUE(reaches(runs, 1));
  EXPECT_FALSE(view.running(player.pid()));
  player.resume();
  ASSERT_TRUE(reaches(list, 2));
  EXPECT_TRUE(eventually([&] { return view.running(player.pid()); }));
  EXPECT_EQ(view.processOf(player.pid()), object);
}

TEST_P(BothKinds, ProcessStaysListedWithoutAStreamUntilItEnds) {
  Player player{stack, {.kind = GetParam(), .name = "Player"}};
  ASSERT_TRUE(eventually([&] { return view.running(player.pid()); }));
  const AudioObjectID object = view.processOf(player.pid());
  player.close();
  ASSERT_TRUE(eventually([&] { return !view.running(player.pid()); }));
  EXPECT_EQ(view.processOf(player.pid()), object);
  player.open();
  ASSERT_TRUE(eventually([&] { return view.running(player.pid()); }));
  EXPECT_EQ(view.processOf(player.pid()), object);
  const std::int32_t pid = player.pid();
  player.kill();
  EXPECT_TRUE(eventually([&] { return view.processOf(pid) == 0; }));
}

TEST_F(AudioListingTest, PulseClientInItsOwnPidNamespaceIsFoundByItsInnerPid) {
  Player player{stack, {.kind = PlayerKind::Pulse, .name = "Inner", .ownPidNamespace = true}};
  ASSERT_EQ(player.ownPid(), 1);
  EXPECT_TRUE(eventually([&] { return view.running(player.pid()); }));
  EXPECT_THAT(*view.processes(), SizeIs(1));
}

TEST_F(AudioListingTest, NativeClientInItsOwnPidNamespaceIsFound) {
  Player player{stack, {.name = "Inner", .ownPidNamespace = true}};
  EXPECT_TRUE(eventually([&] { return view.running(player.pid()); }));
}

TEST_F(AudioListingTest, UnknownObjectsPropertiesAndSizesAreErrorsWithAReason) {
  std::uint32_t size = 0;
  std::array<std::byte, 2> small{};
  std::optional<std::string> text;
  AudioHardware& hardware = *view.hardware;
  EXPECT_EQ(hardware.lastFailure(), AudioFailure{});
  EXPECT_LT(hardware.propertyDataSize(99999, audio::kProcessPID, size), 0);
  EXPECT_THAT(hardware.lastFailure().text, testing::HasSubstr("99999"));
  EXPECT_LT(hardware.propertyData(1, audio::kProcessPID, small, size), 0);
  EXPECT_LT(hardware.propertyData(1, audio::kDefaultOutputDevice, small, size), 0);
  EXPECT_EQ(hardware.lastFailure().code, -22);
  EXPECT_LT(hardware.propertyString(1, audio::kDefaultOutputDevice, text), 0);
  EXPECT_LT(hardware.propertyData(view.defaultDevice(), audio::kDeviceUID, small, size), 0);
}

TEST_F(AudioListingTest, ServerDeathAnswersAtOnceAndItsReturnIsToldOnce) {
  {
    Player player{stack, {.name = "Before"}};
    ASSERT_TRUE(eventually([&] { return view.running(player.pid()); }));
  }
  const AudioObjectID before = view.defaultDevice();
  const auto output = count(audio::kSystemObject, audio::kDefaultOutputDevice);
  const auto list = count(audio::kSystemObject, audio::kProcessObjectList);
  stack.kill(lab::Daemon::PipeWire);
  std::uint32_t size = 0;
  ASSERT_TRUE(eventually([&] {
    return view.hardware->propertyDataSize(audio::kSystemObject, audio::kProcessObjectList, size) == -32;
  }));
  queue->run();
  *list = 0;
  const auto asked = std::chrono::steady_clock::now();
  EXPECT_EQ(view.hardware->propertyDataSize(audio::kSystemObject, audio::kDefaultOutputDevice, size), -32);
  EXPECT_LT(std::chrono::steady_clock::now() - asked, milliseconds{20});
  EXPECT_EQ(*output, 0);

  stack.restart(lab::Daemon::PipeWire);
  stack.restart(lab::Daemon::SessionManager);
  stack.restart(lab::Daemon::Pulse);
  ASSERT_TRUE(reaches(output, 1));
  ASSERT_TRUE(reaches(list, 1));
  EXPECT_EQ(view.uid(view.defaultDevice()), "lab-sink-a");
  EXPECT_NE(view.defaultDevice(), before);
  Player player{stack, {.name = "After"}};
  EXPECT_TRUE(eventually([&] { return view.running(player.pid()); }));
  queue->run();
  EXPECT_EQ(*output, 1);
}

TEST_F(AudioListingTest, RemovedListenerAndClosedViewAreNotTold) {
  HardwareView other{provider->openView()};
  auto calls = std::make_shared<std::atomic<int>>(0);
  const auto listener = std::make_shared<const AudioPropertyListener>([calls] { ++*calls; });
  for (const auto& each : {view.hardware, other.hardware}) {
    ASSERT_EQ(each->addPropertyListener(audio::kSystemObject, audio::kProcessObjectList, queue, listener), 0);
  }
  ASSERT_EQ(
      view.hardware->removePropertyListener(audio::kSystemObject, audio::kProcessObjectList, queue, listener),
      0);
  EXPECT_LT(
      view.hardware->removePropertyListener(audio::kSystemObject, audio::kProcessObjectList, queue, listener),
      0);
  other.hardware.reset();
  Player player{stack, {.name = "Player"}};
  ASSERT_TRUE(eventually([&] { return view.running(player.pid()); }));
  queue->run();
  EXPECT_EQ(*calls, 0);
}

TEST(AudioListing, WithoutAServerEveryReadSaysSoAtOnce) {
  lab::Environment nowhere = lab::neutralEnvironment();
  nowhere["XDG_RUNTIME_DIR"] = "/nonexistent";
  const lab::ScopedEnvironment environment{nowhere};
  const auto provider = makeAudioHardwareProvider();
  const HardwareView view{provider->openView()};
  std::uint32_t size = 0;
  EXPECT_EQ(view.hardware->propertyDataSize(audio::kSystemObject, audio::kProcessObjectList, size), -32);
  EXPECT_EQ(view.hardware->lastFailure().text, "There is no connection to the audio server.");
}

}  // namespace
}  // namespace monitor::platform::test
