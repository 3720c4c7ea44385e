// SPDX-License-Identifier: MIT
#include "MonitorMac/NativeAudioActivity.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Tests/Fakes/FakeApplicationBundles.h"
#include "Tests/Fakes/FakeAudioHardware.h"
#include "Tests/Fakes/FakeProcessTable.h"
#include "Tests/Fakes/FakeSystemInformation.h"
#include "Tests/Fakes/FakeTextOrder.h"

namespace monitor {
namespace {

constexpr std::uint64_t kStart = 1'731'700'000'000'000;

class NativeAudioActivityTest : public ::testing::Test {
 protected:
  AudioObjectID play(std::int32_t pid, const std::string& executable, bool running = true) {
    processes.add({pid, kStart}, executable);
    return hardware.addProcess(pid, running);
  }
  void bundle(const std::string& folder, const std::string& identifier,
              std::optional<std::string> displayName, std::optional<std::string> name = std::nullopt) {
    bundles.folders[folder] = {identifier, std::move(displayName), std::move(name), folder};
  }
  std::vector<ActiveAudioApplication> snapshot() {
    return NativeAudioActivity::snapshot({*view, processes, bundles, system, order});
  }

  fakes::FakeAudioHardware hardware;
  std::shared_ptr<AudioHardware> view = hardware.openView();
  fakes::FakeProcessTable processes;
  fakes::FakeApplicationBundles bundles;
  fakes::FakeSystemInformation system;
  fakes::FakeTextOrder order;
};

TEST_F(NativeAudioActivityTest, NoProcessAtAllIsAnEmptyList) {
  EXPECT_TRUE(snapshot().empty());
}

TEST_F(NativeAudioActivityTest, NoProcessProducingOutputIsAnEmptyListAndNoError) {
  play(812, "/usr/bin/tool", false);
  EXPECT_TRUE(snapshot().empty());
}

TEST_F(NativeAudioActivityTest, TwoProcessesOfOneBundleAreOneEntry) {
  bundle("/Applications/Player.app", "com.example.player", "Player");
  play(1, "/Applications/Player.app/Contents/MacOS/player");
  play(2, "/Applications/Player.app/Contents/MacOS/helper");
  EXPECT_EQ(
      snapshot(),
      (std::vector<ActiveAudioApplication>{{"com.example.player", "Player", "/Applications/Player.app"}}));
}

TEST_F(NativeAudioActivityTest, AppTwoSortsBeforeAppTen) {
  bundle("/A.app", "a", "App 10");
  bundle("/B.app", "b", "app 2");
  bundle("/C.app", "c", "App 1");
  play(1, "/A.app/x");
  play(2, "/B.app/x");
  play(3, "/C.app/x");
  std::vector<std::string> names;
  for (const auto& application : snapshot()) names.push_back(application.name);
  EXPECT_EQ(names, (std::vector<std::string>{"App 1", "app 2", "App 10"}));
}

TEST_F(NativeAudioActivityTest, CommandLineProgramIsIdentifiedByItsProcess) {
  play(812, "/usr/bin/player");
  EXPECT_EQ(snapshot(),
            (std::vector<ActiveAudioApplication>{{"process:812:1731700000000000", "player", std::nullopt}}));
}

TEST_F(NativeAudioActivityTest, NameFallsBackFromDisplayNameToNameToFile) {
  bundle("/One.app", "one", "Shown", "Plain");
  bundle("/Two.app", "two", std::nullopt, "Plain");
  bundle("/Three.app", "three", std::nullopt);
  play(1, "/One.app/a");
  play(2, "/Two.app/b");
  play(3, "/Three.app/c");
  std::vector<std::string> names;
  for (const auto& application : snapshot()) names.push_back(application.name);
  EXPECT_EQ(names, (std::vector<std::string>{"c", "Plain", "Shown"}));
}

TEST_F(NativeAudioActivityTest, BundleWithoutAnIdentifierKeepsTheProcessIdentity) {
  bundles.folders["/Odd.app"] = {std::nullopt, "Odd", std::nullopt, "/Odd.app"};
  play(812, "/Odd.app/odd");
  EXPECT_EQ(snapshot(),
            (std::vector<ActiveAudioApplication>{{"process:812:1731700000000000", "Odd", "/Odd.app"}}));
}

TEST_F(NativeAudioActivityTest, ThisProcessIsLeftOut) {
  play(system.process, "/usr/bin/self");
  EXPECT_TRUE(snapshot().empty());
}

TEST_F(NativeAudioActivityTest, NegativePidsAreLeftOut) {
  play(-1, "/usr/bin/tool");
  EXPECT_TRUE(snapshot().empty());
}

TEST_F(NativeAudioActivityTest, ProcessesOfOtherUsersAndEndedOnesAreLeftOut) {
  processes.add({1, kStart}, "/usr/bin/tool", 502);
  hardware.addProcess(1);
  hardware.addProcess(2);  // not in the process table any more
  EXPECT_TRUE(snapshot().empty());
}

TEST_F(NativeAudioActivityTest, ProcessWhoseStateCannotBeReadIsLeftOut) {
  play(1, "/usr/bin/one");
  const auto count = snapshot().size();
  ASSERT_EQ(count, 1U);
  hardware.forgetCalls();
  (void)snapshot();
  // The first two calls read the list; each later one concerns the process alone.
  const std::size_t calls = hardware.calls().size();
  for (std::size_t call = 3; call <= calls; ++call) {
    hardware.failCall(call, -50);
    EXPECT_TRUE(snapshot().empty()) << call;
    hardware.failNothing();
  }
}

TEST_F(NativeAudioActivityTest, ListThatCannotBeReadIsUnavailable) {
  play(1, "/usr/bin/one");
  for (std::size_t call = 1; call <= 2; ++call) {
    hardware.failCall(call, -50);
    EXPECT_THROW((void)snapshot(), NativeAudioActivity::AudioActivityError) << call;
    hardware.failNothing();
  }
}

// A system whose process list announces a size of the test's choosing.
class SizedHardware final : public AudioHardware {
 public:
  explicit SizedHardware(std::uint32_t listSize) : listSize_(listSize) {}
  AudioStatus propertyDataSize(AudioObjectID, const AudioObjectAddress&, std::uint32_t& size) override {
    size = listSize_;
    return 0;
  }
  AudioStatus propertyData(AudioObjectID object, const AudioObjectAddress&, std::span<std::byte> data,
                           std::uint32_t& size) override {
    size = static_cast<std::uint32_t>(data.size());
    return object == audio::kSystemObject ? 0 : -1;
  }
  AudioStatus propertyString(AudioObjectID, const AudioObjectAddress&, std::optional<std::string>&) override {
    return -1;
  }
  AudioStatus addPropertyListener(AudioObjectID, const AudioObjectAddress&, std::shared_ptr<SerialQueue>,
                                  std::shared_ptr<const AudioPropertyListener>) override {
    return -1;
  }
  AudioStatus removePropertyListener(AudioObjectID, const AudioObjectAddress&,
                                     const std::shared_ptr<SerialQueue>&,
                                     const std::shared_ptr<const AudioPropertyListener>&) override {
    return -1;
  }
  AudioStatus createProcessTap(const ProcessTapDescription&, AudioObjectID&) override { return -1; }
  AudioStatus destroyProcessTap(AudioObjectID) override { return -1; }
  AudioStatus createAggregateDevice(const AggregateDeviceDescription&, AudioObjectID&) override { return -1; }
  AudioStatus destroyAggregateDevice(AudioObjectID) override { return -1; }
  AudioStatus createIOProc(AudioObjectID, AudioIOBlock, AudioIOProcID&) override { return -1; }
  AudioStatus destroyIOProc(AudioObjectID, AudioIOProcID) override { return -1; }
  AudioStatus startDevice(AudioObjectID, AudioIOProcID) override { return -1; }
  AudioStatus stopDevice(AudioObjectID, AudioIOProcID) override { return -1; }
  [[nodiscard]] AudioFailure lastFailure() const override { return {}; }

 private:
  std::uint32_t listSize_;
};

TEST_F(NativeAudioActivityTest, ListOfAMillionBytesIsReadAndALargerOneIsUnavailable) {
  view = std::make_shared<SizedHardware>(1'000'000);
  EXPECT_NO_THROW((void)snapshot());
  view = std::make_shared<SizedHardware>(1'000'001);
  EXPECT_THROW((void)snapshot(), NativeAudioActivity::AudioActivityError);
}

TEST_F(NativeAudioActivityTest, ListOfFewerThanFourBytesIsEmpty) {
  view = std::make_shared<SizedHardware>(3);
  EXPECT_TRUE(snapshot().empty());
}

TEST_F(NativeAudioActivityTest, OnAMacOlderThanFourteenTwoTheListIsEmptyAndNothingIsAsked) {
  play(1, "/usr/bin/one");
  system.version = OperatingSystemVersion{14, 1, 9};
  hardware.forgetCalls();
  EXPECT_TRUE(snapshot().empty());
  EXPECT_TRUE(hardware.calls().empty());
  system.version = OperatingSystemVersion{14, 2, 0};
  EXPECT_EQ(snapshot().size(), 1U);
}

}  // namespace
}  // namespace monitor
