// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "MonitorCore/Ports/AudioHardware.h"
#include "MonitorCore/Ports/SerialQueue.h"

// What every AudioHardware does, in the order in which a client needs it. The harness has
//   std::string unavailable();          why the suite cannot run here; empty when it can
//   std::shared_ptr<AudioHardware> openView();
//   std::shared_ptr<SerialQueue> queue();          where listeners run
//   std::int32_t startPlayer();                    its pid; it plays on the default output and has its object
//   void endPlayer(std::int32_t pid);              the process ends
//   void pausePlayer(pid); void resumePlayer(pid); it stays connected
//   void switchOutput();                           makes another stereo output the default, and back again
//   double level(std::int32_t pid);                what is heard of the player now; 1 is its own playback
//   bool await(const std::function<bool()>&);      lets time pass until it is true; false when it never is
//   void settle();                                 long enough for a wrong notification or cycle to arrive
//   static constexpr AudioStatus kBusy;            the status of tapping what is tapped already
// Views are called from the test's thread only. Levels are compared to within kLevelTolerance.
namespace monitor::contract {

// What a procedure did. Shared with the realtime thread, so nothing but atomics.
struct CycleCounts {
  std::atomic<std::uint64_t> cycles{0};
  std::atomic<std::uint64_t> misshaped{0};  // cycles whose lists break the promise
};

// Halves what it is given.
inline AudioIOBlock halvingBlock(std::shared_ptr<CycleCounts> counts) {
  return [counts = std::move(counts)](const MonitorAudioBufferList* input, MonitorAudioBufferList* output) {
    counts->cycles.fetch_add(1);
    bool fits = input->mNumberBuffers == 2 && output->mNumberBuffers == 2;
    for (std::uint32_t index = 0; fits && index < 2; ++index) {
      const MonitorAudioBuffer& in = input->mBuffers[index];
      const MonitorAudioBuffer& out = output->mBuffers[index];
      fits = in.mNumberChannels == 1 && out.mNumberChannels == 1 && in.mDataByteSize == out.mDataByteSize &&
             in.mDataByteSize % sizeof(float) == 0 && in.mDataByteSize != 0 && in.mData != nullptr &&
             out.mData != nullptr && in.mData != out.mData;
      for (std::size_t sample = 0; fits && sample < out.mDataByteSize / sizeof(float); ++sample) {
        static_cast<float*>(out.mData)[sample] = static_cast<const float*>(in.mData)[sample] * 0.5F;
      }
    }
    if (!fits) counts->misshaped.fetch_add(1);
  };
}

// The calls of a client, short.
class ContractView {
 public:
  ContractView() = default;
  explicit ContractView(std::shared_ptr<AudioHardware> opened) : hardware(std::move(opened)) {}

  template <class Value>
  [[nodiscard]] std::optional<Value> read(AudioObjectID object, const AudioObjectAddress& address) const {
    Value value{};
    std::uint32_t size = 0;
    const auto bytes = std::as_writable_bytes(std::span(&value, 1));
    if (hardware->propertyData(object, address, bytes, size) != 0 || size != sizeof value)
      return std::nullopt;
    return value;
  }
  [[nodiscard]] std::vector<AudioObjectID> processes() const {
    std::uint32_t size = 0;
    EXPECT_EQ(hardware->propertyDataSize(audio::kSystemObject, audio::kProcessObjectList, size), 0);
    EXPECT_EQ(size % sizeof(AudioObjectID), 0U);
    std::vector<AudioObjectID> objects(size / sizeof(AudioObjectID));
    const auto bytes = std::as_writable_bytes(std::span(objects));
    EXPECT_EQ(hardware->propertyData(audio::kSystemObject, audio::kProcessObjectList, bytes, size), 0);
    objects.resize(size / sizeof(AudioObjectID));
    return objects;
  }
  [[nodiscard]] AudioObjectID processOf(std::int32_t pid) const {
    for (const AudioObjectID object : processes()) {
      if (read<std::int32_t>(object, audio::kProcessPID) == pid) return object;
    }
    return 0;
  }
  [[nodiscard]] bool isRunning(std::int32_t pid) const {
    return read<std::uint32_t>(processOf(pid), audio::kProcessIsRunningOutput) == 1U;
  }
  [[nodiscard]] AudioObjectID output() const {
    return read<AudioObjectID>(audio::kSystemObject, audio::kDefaultOutputDevice).value_or(0);
  }
  [[nodiscard]] std::string uidOf(AudioObjectID device) const {
    std::optional<std::string> value;
    EXPECT_EQ(hardware->propertyString(device, audio::kDeviceUID, value), 0);
    return value.value_or("");
  }

  [[nodiscard]] ProcessTapDescription tapOf(std::vector<AudioObjectID> objects, std::string uuid) const {
    return {"Contract tap",
            std::move(uuid),
            std::move(objects),
            uidOf(output()),
            0,
            true,
            TapMuteBehavior::MutedWhenTapped};
  }
  [[nodiscard]] AggregateDeviceDescription deviceOf(const std::string& tapUUID, std::string uid) const {
    const std::string output = uidOf(this->output());
    return {"Contract device", std::move(uid),    true, false, output,
            {{output, 0, 2}},  {{tapUUID, true}}, false};
  }

  std::shared_ptr<AudioHardware> hardware;
};

// A running route that halves.
struct ContractRoute {
  AudioObjectID tap = 0;
  AudioObjectID device = 0;
  AudioIOProcID procedure = 0;
  std::shared_ptr<CycleCounts> counts = std::make_shared<CycleCounts>();

  void build(const ContractView& view, std::vector<AudioObjectID> objects) {
    ASSERT_EQ(view.hardware->createProcessTap(view.tapOf(std::move(objects), kTapUUID), tap), 0);
    ASSERT_NE(tap, 0U);
    ASSERT_EQ(view.hardware->createAggregateDevice(view.deviceOf(kTapUUID, kDeviceUID), device), 0);
    ASSERT_NE(device, 0U);
    ASSERT_EQ(view.hardware->createIOProc(device, halvingBlock(counts), procedure), 0);
    ASSERT_NE(procedure, 0U);
    ASSERT_EQ(view.hardware->startDevice(device, procedure), 0);
  }
  void tearDown(const ContractView& view) const {
    EXPECT_EQ(view.hardware->stopDevice(device, procedure), 0);
    EXPECT_EQ(view.hardware->destroyIOProc(device, procedure), 0);
    EXPECT_EQ(view.hardware->destroyAggregateDevice(device), 0);
    EXPECT_EQ(view.hardware->destroyProcessTap(tap), 0);
  }

  static constexpr const char* kTapUUID = "0A7E5D0C-52C4-4E64-9B52-6B8F9F1B8E01";
  static constexpr const char* kDeviceUID = "5D1B3C2A-1F7E-4C39-8D4E-2F6A7B8C9D02";
};

inline constexpr double kLevelTolerance = 0.01;

template <class Harness>
class AudioHardwareContract : public testing::Test {
 protected:
  void SetUp() override {
    const std::string reason = harness.unavailable();
    if (!reason.empty()) GTEST_SKIP() << reason;
    view = ContractView(harness.openView());
  }
  void TearDown() override { view.hardware.reset(); }

  bool levelBecomes(std::int32_t pid, double expected) {
    return harness.await([&] { return std::abs(harness.level(pid) - expected) <= kLevelTolerance; });
  }
  // Counts the notifications of a property of the system.
  struct Notices {
    std::shared_ptr<std::atomic<int>> count = std::make_shared<std::atomic<int>>(0);
    std::shared_ptr<std::atomic<int>> strayed = std::make_shared<std::atomic<int>>(0);  // off the queue
    std::shared_ptr<const AudioPropertyListener> listener;
  };
  Notices listen(const AudioObjectAddress& address) {
    Notices notices;
    notices.listener = std::make_shared<const AudioPropertyListener>(
        [count = notices.count, strayed = notices.strayed, queue = std::weak_ptr(harness.queue())] {
          const auto held = queue.lock();
          if (held == nullptr || !held->isCurrent()) strayed->fetch_add(1);
          count->fetch_add(1);
        });
    EXPECT_EQ(
        view.hardware->addPropertyListener(audio::kSystemObject, address, harness.queue(), notices.listener),
        0);
    return notices;
  }

  Harness harness;
  ContractView view;
};
TYPED_TEST_SUITE_P(AudioHardwareContract);

TYPED_TEST_P(AudioHardwareContract, WhatDoesNotExistIsAnErrorAndNeverACrash) {
  AudioHardware& hardware = *this->view.hardware;
  constexpr AudioObjectAddress kUnknown{fourCharacterCode("zzzz"), audio::kScopeGlobal, audio::kElementMain};
  for (const AudioObjectID object : {0U, 0x7FFF'FFFFU, 0xFFFF'FFFFU}) {
    std::uint32_t size = 0;
    std::uint32_t value = 0;
    std::optional<std::string> text;
    const auto bytes = std::as_writable_bytes(std::span(&value, 1));
    EXPECT_NE(hardware.propertyDataSize(object, audio::kProcessPID, size), 0);
    EXPECT_NE(hardware.propertyData(object, audio::kProcessPID, bytes, size), 0);
    EXPECT_NE(hardware.propertyString(object, audio::kDeviceUID, text), 0);
    EXPECT_NE(hardware.destroyProcessTap(object), 0);
    EXPECT_NE(hardware.destroyAggregateDevice(object), 0);
    AudioIOProcID procedure = 0;
    EXPECT_NE(hardware.createIOProc(object, halvingBlock(std::make_shared<CycleCounts>()), procedure), 0);
    EXPECT_NE(hardware.startDevice(object, 1), 0);
    EXPECT_NE(hardware.stopDevice(object, 1), 0);
    EXPECT_NE(hardware.destroyIOProc(object, 1), 0);
  }
  std::uint32_t size = 0;
  std::optional<std::string> text;
  EXPECT_NE(hardware.propertyDataSize(audio::kSystemObject, kUnknown, size), 0);
  EXPECT_NE(hardware.propertyString(audio::kSystemObject, kUnknown, text), 0);
  EXPECT_NE(hardware.propertyString(this->view.output(), kUnknown, text), 0);
}

TYPED_TEST_P(AudioHardwareContract, TheLastFailureIsEachViewsOwn) {
  const ContractView other(this->harness.openView());
  EXPECT_EQ(this->view.hardware->lastFailure(), AudioFailure{});
  const AudioStatus status = this->view.hardware->destroyProcessTap(0x7FFF'FFFF);
  EXPECT_EQ(this->view.hardware->lastFailure().code, status);
  EXPECT_FALSE(this->view.hardware->lastFailure().text.empty());
  EXPECT_NE(this->view.output(), 0U);
  EXPECT_EQ(this->view.hardware->lastFailure().code, status) << "a success does not hide it";
  EXPECT_EQ(other.hardware->lastFailure(), AudioFailure{});
}

TYPED_TEST_P(AudioHardwareContract, TheDefaultOutputIsAStereoDeviceOfFloats) {
  const AudioObjectID output = this->view.output();
  ASSERT_NE(output, 0U);
  EXPECT_FALSE(this->view.uidOf(output).empty());
  const auto format = this->view.template read<AudioStreamFormat>(output, audio::kStreamFormat);
  ASSERT_TRUE(format);
  EXPECT_EQ(format->formatID, audio::kFormatLinearPCM);
  EXPECT_NE(format->formatFlags & audio::kFormatFlagIsFloat, 0U);
  EXPECT_EQ(format->bitsPerChannel, 32U);
  EXPECT_EQ(format->channelsPerFrame, 2U);
  EXPECT_GT(format->sampleRate, 0.0);
}

TYPED_TEST_P(AudioHardwareContract, APlayerIsListedWhileItIsThere) {
  const std::int32_t pid = this->harness.startPlayer();
  EXPECT_NE(this->view.processOf(pid), 0U);
  EXPECT_TRUE(this->harness.await([&] { return this->view.isRunning(pid); }));
  this->harness.endPlayer(pid);
  EXPECT_TRUE(this->harness.await([&] { return this->view.processOf(pid) == 0; }));
}

TYPED_TEST_P(AudioHardwareContract, AProcessHasAnIdentifierOrAnEmptyOne) {
  const std::int32_t pid = this->harness.startPlayer();
  std::optional<std::string> identifier;
  EXPECT_EQ(
      this->view.hardware->propertyString(this->view.processOf(pid), audio::kProcessBundleID, identifier), 0);
}

TYPED_TEST_P(AudioHardwareContract, ABufferIsFilledAsFarAsItGoes) {
  this->harness.startPlayer();
  this->harness.startPlayer();
  std::uint32_t size = 0;
  ASSERT_EQ(this->view.hardware->propertyDataSize(audio::kSystemObject, audio::kProcessObjectList, size), 0);
  ASSERT_GE(size, 8U);
  std::vector<std::byte> bytes(size + 16);
  for (const std::size_t room : {std::size_t{0}, std::size_t{4}, bytes.size()}) {
    std::uint32_t filled = 77;
    ASSERT_EQ(this->view.hardware->propertyData(audio::kSystemObject, audio::kProcessObjectList,
                                                std::span(bytes).first(room), filled),
              0);
    EXPECT_EQ(filled, std::min(room, std::size_t{size}));
  }
}

TYPED_TEST_P(AudioHardwareContract, APausedPlayerStaysAndDoesNotRun) {
  const std::int32_t pid = this->harness.startPlayer();
  ASSERT_TRUE(this->harness.await([&] { return this->view.isRunning(pid); }));
  const auto notices = this->listen(audio::kProcessObjectList);
  const AudioObjectID object = this->view.processOf(pid);
  this->harness.pausePlayer(pid);
  EXPECT_TRUE(this->harness.await([&] { return !this->view.isRunning(pid) && *notices.count > 0; }));
  EXPECT_EQ(this->view.processOf(pid), object);
  const int before = *notices.count;
  this->harness.resumePlayer(pid);
  EXPECT_TRUE(this->harness.await([&] { return this->view.isRunning(pid) && *notices.count > before; }));
  EXPECT_EQ(this->view.processOf(pid), object);
}

TYPED_TEST_P(AudioHardwareContract, ListenersHearOnTheirQueueOfProcessesThatComeAndGo) {
  const auto notices = this->listen(audio::kProcessObjectList);
  const std::int32_t pid = this->harness.startPlayer();
  EXPECT_TRUE(this->harness.await([&] { return *notices.count > 0; }));
  this->harness.settle();
  const int before = *notices.count;
  this->harness.endPlayer(pid);
  EXPECT_TRUE(this->harness.await([&] { return *notices.count > before; }));
  EXPECT_EQ(*notices.strayed, 0);
}

TYPED_TEST_P(AudioHardwareContract, ListenersHearOfAnotherDefaultOutput) {
  const auto notices = this->listen(audio::kDefaultOutputDevice);
  const AudioObjectID output = this->view.output();
  this->harness.switchOutput();
  EXPECT_TRUE(this->harness.await([&] { return *notices.count > 0 && this->view.output() != output; }));
  this->harness.switchOutput();
  EXPECT_TRUE(this->harness.await([&] { return this->view.output() == output; }));
  EXPECT_EQ(*notices.strayed, 0);
}

TYPED_TEST_P(AudioHardwareContract, ARemovedListenerHearsNothing) {
  const auto removed = this->listen(audio::kProcessObjectList);
  const auto kept = this->listen(audio::kProcessObjectList);
  EXPECT_NE(this->view.hardware->removePropertyListener(audio::kSystemObject, audio::kDefaultOutputDevice,
                                                        this->harness.queue(), removed.listener),
            0)
      << "that address has no such listener";
  EXPECT_EQ(this->view.hardware->removePropertyListener(audio::kSystemObject, audio::kProcessObjectList,
                                                        this->harness.queue(), removed.listener),
            0);
  EXPECT_NE(this->view.hardware->removePropertyListener(audio::kSystemObject, audio::kProcessObjectList,
                                                        this->harness.queue(), removed.listener),
            0);
  this->harness.settle();
  const int before = *removed.count;
  this->harness.startPlayer();
  EXPECT_TRUE(this->harness.await([&] { return *kept.count > 0; }));
  this->harness.settle();
  EXPECT_EQ(*removed.count, before);
}

TYPED_TEST_P(AudioHardwareContract, ATapHasTheOutputsFormatAndAloneChangesNothing) {
  const std::int32_t pid = this->harness.startPlayer();
  AudioObjectID tap = 0;
  ASSERT_EQ(this->view.hardware->createProcessTap(
                this->view.tapOf({this->view.processOf(pid)}, ContractRoute::kTapUUID), tap),
            0);
  ASSERT_NE(tap, 0U);
  const auto format = this->view.template read<AudioStreamFormat>(tap, audio::kTapFormat);
  const auto expected =
      this->view.template read<AudioStreamFormat>(this->view.output(), audio::kStreamFormat);
  ASSERT_TRUE(format && expected);
  EXPECT_EQ(format->channelsPerFrame, expected->channelsPerFrame);
  EXPECT_EQ(format->sampleRate, expected->sampleRate);
  EXPECT_EQ(format->formatID, expected->formatID);
  EXPECT_EQ(format->bitsPerChannel, expected->bitsPerChannel);
  this->harness.settle();
  EXPECT_TRUE(this->levelBecomes(pid, 1.0));
  EXPECT_EQ(this->view.hardware->destroyProcessTap(tap), 0);
  EXPECT_FALSE(this->view.template read<AudioStreamFormat>(tap, audio::kTapFormat));
  EXPECT_NE(this->view.hardware->destroyProcessTap(tap), 0);
}

TYPED_TEST_P(AudioHardwareContract, ATapOfWhatIsNotThereIsRefused) {
  const std::int32_t pid = this->harness.startPlayer();
  const AudioObjectID object = this->view.processOf(pid);
  AudioObjectID tap = 0;
  EXPECT_NE(this->view.hardware->createProcessTap(this->view.tapOf({}, ContractRoute::kTapUUID), tap), 0);
  EXPECT_NE(this->view.hardware->createProcessTap(
                this->view.tapOf({object, 0x7FFF'FFFF}, ContractRoute::kTapUUID), tap),
            0);
  auto elsewhere = this->view.tapOf({object}, ContractRoute::kTapUUID);
  elsewhere.deviceUID = "no such device";
  EXPECT_NE(this->view.hardware->createProcessTap(elsewhere, tap), 0);
  ContractRoute route;
  route.build(this->view, {object});
  EXPECT_TRUE(this->levelBecomes(pid, 0.5)) << "the refusals left nothing behind";
  route.tearDown(this->view);
}

TYPED_TEST_P(AudioHardwareContract, ADeviceOfWhatIsNotThereIsRefused) {
  const std::int32_t pid = this->harness.startPlayer();
  AudioObjectID tap = 0;
  ASSERT_EQ(this->view.hardware->createProcessTap(
                this->view.tapOf({this->view.processOf(pid)}, ContractRoute::kTapUUID), tap),
            0);
  AudioObjectID device = 0;
  EXPECT_NE(
      this->view.hardware->createAggregateDevice(
          this->view.deviceOf("FFFFFFFF-52C4-4E64-9B52-6B8F9F1B8E01", ContractRoute::kDeviceUID), device),
      0);
  auto elsewhere = this->view.deviceOf(ContractRoute::kTapUUID, ContractRoute::kDeviceUID);
  elsewhere.subdevices.front().uid = "no such device";
  elsewhere.master = "no such device";
  EXPECT_NE(this->view.hardware->createAggregateDevice(elsewhere, device), 0);
  EXPECT_EQ(this->view.hardware->destroyProcessTap(tap), 0);
}

TYPED_TEST_P(AudioHardwareContract, ARoutedPlayerIsHeardOnceThroughTheProcedure) {
  const std::int32_t pid = this->harness.startPlayer();
  const std::int32_t other = this->harness.startPlayer();
  ASSERT_TRUE(this->levelBecomes(pid, 1.0));
  ContractRoute route;
  route.build(this->view, {this->view.processOf(pid)});
  EXPECT_TRUE(this->levelBecomes(pid, 0.5));
  EXPECT_TRUE(this->levelBecomes(other, 1.0));
  EXPECT_TRUE(this->harness.await([&] { return route.counts->cycles > 0; }));
  EXPECT_EQ(route.counts->misshaped, 0U);
  route.tearDown(this->view);
  EXPECT_TRUE(this->levelBecomes(pid, 1.0));
}

TYPED_TEST_P(AudioHardwareContract, StoppingTheDeviceGivesTheDirectPathBack) {
  const std::int32_t pid = this->harness.startPlayer();
  ContractRoute route;
  route.build(this->view, {this->view.processOf(pid)});
  ASSERT_TRUE(this->levelBecomes(pid, 0.5));
  EXPECT_EQ(this->view.hardware->stopDevice(route.device, route.procedure), 0);
  EXPECT_TRUE(this->levelBecomes(pid, 1.0));
  EXPECT_EQ(this->view.hardware->destroyIOProc(route.device, route.procedure), 0);
  EXPECT_EQ(this->view.hardware->destroyAggregateDevice(route.device), 0);
  EXPECT_EQ(this->view.hardware->destroyProcessTap(route.tap), 0);
}

TYPED_TEST_P(AudioHardwareContract, ADestroyedProcedureIsReleasedAndNeverEnteredAgain) {
  const std::int32_t pid = this->harness.startPlayer();
  ContractRoute route;
  route.build(this->view, {this->view.processOf(pid)});
  ASSERT_TRUE(this->harness.await([&] { return route.counts->cycles > 0; }));
  EXPECT_EQ(this->view.hardware->stopDevice(route.device, route.procedure), 0);
  EXPECT_EQ(this->view.hardware->destroyIOProc(route.device, route.procedure), 0);
  const std::uint64_t cycles = route.counts->cycles;
  EXPECT_EQ(route.counts.use_count(), 1) << "the block is gone";
  this->harness.settle();
  EXPECT_EQ(route.counts->cycles, cycles);
  EXPECT_NE(this->view.hardware->startDevice(route.device, route.procedure), 0);
  EXPECT_NE(this->view.hardware->destroyIOProc(route.device, route.procedure), 0);
  EXPECT_EQ(this->view.hardware->destroyAggregateDevice(route.device), 0);
  EXPECT_EQ(this->view.hardware->destroyProcessTap(route.tap), 0);
}

TYPED_TEST_P(AudioHardwareContract, DestroyedInAnyOrderNothingStays) {
  const std::int32_t pid = this->harness.startPlayer();
  ContractRoute route;
  route.build(this->view, {this->view.processOf(pid)});
  ASSERT_TRUE(this->levelBecomes(pid, 0.5));
  (void)this->view.hardware->destroyProcessTap(route.tap);
  (void)this->view.hardware->destroyAggregateDevice(route.device);
  (void)this->view.hardware->destroyIOProc(route.device, route.procedure);
  EXPECT_TRUE(this->levelBecomes(pid, 1.0));
  EXPECT_EQ(route.counts.use_count(), 1);
}

TYPED_TEST_P(AudioHardwareContract, AProcessIsTappedOnce) {
  const std::int32_t pid = this->harness.startPlayer();
  const ContractView second(this->harness.openView());
  ContractRoute route;
  route.build(this->view, {this->view.processOf(pid)});
  ASSERT_TRUE(this->levelBecomes(pid, 0.5));
  AudioObjectID tap = 0;
  EXPECT_EQ(second.hardware->createProcessTap(
                second.tapOf({second.processOf(pid)}, "FFFFFFFF-52C4-4E64-9B52-6B8F9F1B8E01"), tap),
            TypeParam::kBusy);
  EXPECT_EQ(second.hardware->lastFailure().code, TypeParam::kBusy);
  this->harness.settle();
  EXPECT_TRUE(this->levelBecomes(pid, 0.5));
  route.tearDown(this->view);
  ContractRoute again;
  again.build(second, {second.processOf(pid)});
  EXPECT_TRUE(this->levelBecomes(pid, 0.5));
  again.tearDown(second);
  EXPECT_TRUE(this->levelBecomes(pid, 1.0));
}

TYPED_TEST_P(AudioHardwareContract, AViewCannotTouchWhatAnotherMade) {
  const std::int32_t pid = this->harness.startPlayer();
  const ContractView second(this->harness.openView());
  ContractRoute route;
  route.build(this->view, {this->view.processOf(pid)});
  AudioIOProcID procedure = 0;
  AudioObjectID device = 0;
  EXPECT_NE(second.hardware->createIOProc(route.device, halvingBlock(route.counts), procedure), 0);
  EXPECT_NE(second.hardware->stopDevice(route.device, route.procedure), 0);
  EXPECT_NE(second.hardware->destroyIOProc(route.device, route.procedure), 0);
  EXPECT_NE(second.hardware->createAggregateDevice(
                second.deviceOf(ContractRoute::kTapUUID, "FFFFFFFF-1F7E-4C39-8D4E-2F6A7B8C9D02"), device),
            0);
  EXPECT_NE(second.hardware->destroyAggregateDevice(route.device), 0);
  EXPECT_NE(second.hardware->destroyProcessTap(route.tap), 0);
  EXPECT_TRUE(this->levelBecomes(pid, 0.5));
  route.tearDown(this->view);
}

TYPED_TEST_P(AudioHardwareContract, TwoViewsRouteTwoPlayers) {
  const std::int32_t pid = this->harness.startPlayer();
  const std::int32_t other = this->harness.startPlayer();
  const ContractView second(this->harness.openView());
  ContractRoute first;
  first.build(this->view, {this->view.processOf(pid)});
  ContractRoute route;
  route.build(second, {second.processOf(other)});
  EXPECT_TRUE(this->levelBecomes(pid, 0.5));
  EXPECT_TRUE(this->levelBecomes(other, 0.5));
  first.tearDown(this->view);
  EXPECT_TRUE(this->levelBecomes(pid, 1.0));
  EXPECT_TRUE(this->levelBecomes(other, 0.5));
  route.tearDown(second);
}

TYPED_TEST_P(AudioHardwareContract, TheEndOfAViewIsTheEndOfAllItMade) {
  const std::int32_t pid = this->harness.startPlayer();
  ContractRoute route;
  {
    const ContractView passing(this->harness.openView());
    route.build(passing, {passing.processOf(pid)});
    ASSERT_TRUE(this->levelBecomes(pid, 0.5));
  }
  EXPECT_TRUE(this->levelBecomes(pid, 1.0));
  EXPECT_EQ(route.counts.use_count(), 1);
  ContractRoute again;
  again.build(this->view, {this->view.processOf(pid)});
  EXPECT_TRUE(this->levelBecomes(pid, 0.5));
  again.tearDown(this->view);
}

TYPED_TEST_P(AudioHardwareContract, ARouteOutlivesItsPlayerAndIsTornDownAllTheSame) {
  const std::int32_t pid = this->harness.startPlayer();
  ContractRoute route;
  route.build(this->view, {this->view.processOf(pid)});
  ASSERT_TRUE(this->levelBecomes(pid, 0.5));
  this->harness.endPlayer(pid);
  EXPECT_TRUE(this->harness.await([&] { return this->view.processOf(pid) == 0; }));
  (void)this->view.hardware->stopDevice(route.device, route.procedure);
  (void)this->view.hardware->destroyIOProc(route.device, route.procedure);
  (void)this->view.hardware->destroyAggregateDevice(route.device);
  (void)this->view.hardware->destroyProcessTap(route.tap);
  EXPECT_EQ(route.counts.use_count(), 1);
}

TYPED_TEST_P(AudioHardwareContract, IdsAreNeverUsedAgain) {
  const std::int32_t pid = this->harness.startPlayer();
  const AudioObjectID object = this->view.processOf(pid);
  std::set<AudioObjectID> seen{object, this->view.output(), audio::kSystemObject};
  for (int count = 0; count < 8; ++count) {
    AudioObjectID tap = 0;
    ASSERT_EQ(this->view.hardware->createProcessTap(this->view.tapOf({object}, ContractRoute::kTapUUID), tap),
              0);
    AudioObjectID device = 0;
    ASSERT_EQ(this->view.hardware->createAggregateDevice(
                  this->view.deviceOf(ContractRoute::kTapUUID, ContractRoute::kDeviceUID), device),
              0);
    EXPECT_TRUE(seen.insert(tap).second);
    EXPECT_TRUE(seen.insert(device).second);
    EXPECT_EQ(this->view.hardware->destroyAggregateDevice(device), 0);
    EXPECT_EQ(this->view.hardware->destroyProcessTap(tap), 0);
  }
}

REGISTER_TYPED_TEST_SUITE_P(
    AudioHardwareContract, WhatDoesNotExistIsAnErrorAndNeverACrash, TheLastFailureIsEachViewsOwn,
    TheDefaultOutputIsAStereoDeviceOfFloats, APlayerIsListedWhileItIsThere,
    AProcessHasAnIdentifierOrAnEmptyOne, ABufferIsFilledAsFarAsItGoes, APausedPlayerStaysAndDoesNotRun,
    ListenersHearOnTheirQueueOfProcessesThatComeAndGo, ListenersHearOfAnotherDefaultOutput,
    ARemovedListenerHearsNothing, ATapHasTheOutputsFormatAndAloneChangesNothing,
    ATapOfWhatIsNotThereIsRefused, ADeviceOfWhatIsNotThereIsRefused,
    ARoutedPlayerIsHeardOnceThroughTheProcedure, StoppingTheDeviceGivesTheDirectPathBack,
    ADestroyedProcedureIsReleasedAndNeverEnteredAgain, DestroyedInAnyOrderNothingStays, AProcessIsTappedOnce,
    AViewCannotTouchWhatAnotherMade, TwoViewsRouteTwoPlayers, TheEndOfAViewIsTheEndOfAllItMade,
    ARouteOutlivesItsPlayerAndIsTornDownAllTheSame, IdsAreNeverUsedAgain);

}  // namespace monitor::contract
