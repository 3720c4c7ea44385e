// SPDX-License-Identifier: MIT
#include "Platform/Darwin/CoreAudioHardware.h"

#import <CoreAudio/AudioHardwareTapping.h>
#import <CoreAudio/CoreAudio.h>
#import <Foundation/Foundation.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>

#include "MonitorCore/AggregateDictionary.h"
#include "Platform/Darwin/DispatchQueueOf.h"
#include "Platform/Darwin/Text.h"

namespace monitor::platform {
namespace {

static_assert(sizeof(MonitorAudioBufferList) == sizeof(::AudioBufferList));
static_assert(offsetof(MonitorAudioBufferList, mBuffers) == offsetof(::AudioBufferList, mBuffers));
static_assert(sizeof(MonitorAudioBuffer) == sizeof(::AudioBuffer));
static_assert(offsetof(MonitorAudioBuffer, mDataByteSize) == offsetof(::AudioBuffer, mDataByteSize));
static_assert(offsetof(MonitorAudioBuffer, mData) == offsetof(::AudioBuffer, mData));
static_assert(sizeof(AudioStreamFormat) == sizeof(AudioStreamBasicDescription));

// What a call that needs a later system answers on an older one: "not supported" in the audio system's own numbering.
constexpr AudioStatus kUnsupportedOperation = 0x756E6F70;  // 'unop'

constexpr AudioObjectPropertyAddress native(const AudioObjectAddress& address) {
  return {address.selector, address.scope, address.element};
}

// Builds the property-list object that a description is.
id objcValue(const DescriptionValue& value);

NSArray* objcArray(const std::vector<DescriptionValue>& list) {
  NSMutableArray* array = [NSMutableArray arrayWithCapacity:list.size()];
  for (const DescriptionValue& item : list) [array addObject:objcValue(item)];
  return array;
}

NSDictionary<NSString*, id>* objcDictionary(const DescriptionDictionary& entries) {
  NSMutableDictionary<NSString*, id>* dictionary = [NSMutableDictionary dictionary];
  for (const auto& [key, value] : entries) [dictionary setObject:objcValue(value) forKey:objcText(key)];
  return dictionary;
}

id objcValue(const DescriptionValue& value) {
  if (const auto* flag = std::get_if<bool>(&value.content)) return *flag ? @YES : @NO;
  if (const auto* number = std::get_if<std::uint32_t>(&value.content)) return @(*number);
  if (const auto* text = std::get_if<std::string>(&value.content)) return objcText(*text);
  if (const auto* list = std::get_if<std::vector<DescriptionValue>>(&value.content)) return objcArray(*list);
  return objcDictionary(std::get<DescriptionDictionary>(value.content));
}

CATapMuteBehavior nativeBehavior(TapMuteBehavior behavior) {
  switch (behavior) {
    case TapMuteBehavior::Muted: return CATapMuted;
    case TapMuteBehavior::MutedWhenTapped: return CATapMutedWhenTapped;
    case TapMuteBehavior::Unmuted: break;
  }
  return CATapUnmuted;
}

struct Registration {
  AudioObjectID object;
  AudioObjectAddress address;
  std::shared_ptr<SerialQueue> queue;
  std::shared_ptr<const AudioPropertyListener> listener;
  AudioObjectPropertyListenerBlock block;
};

AudioStatus removeListener(const Registration& registration) {
  const AudioObjectPropertyAddress address = native(registration.address);
  return AudioObjectRemovePropertyListenerBlock(registration.object, &address, dispatchQueueOf(*registration.queue),
                                                registration.block);
}

AudioStatus destroyTap(AudioObjectID tap) {
  if (@available(macOS 14.2, *)) return AudioHardwareDestroyProcessTap(tap);
  return kUnsupportedOperation;
}

AudioDeviceIOProcID nativeProcedure(AudioIOProcID procedure) {
  return reinterpret_cast<AudioDeviceIOProcID>(procedure);
}

class CoreAudioHardware final : public AudioHardware {
 public:
  CoreAudioHardware() = default;
  CoreAudioHardware(const CoreAudioHardware&) = delete;
  CoreAudioHardware& operator=(const CoreAudioHardware&) = delete;

  ~CoreAudioHardware() override {
    for (const Registration& registration : registrations_) removeListener(registration);
    for (const auto& [procedure, device] : procedures_) {
      AudioDeviceStop(device, nativeProcedure(procedure));
      AudioDeviceDestroyIOProcID(device, nativeProcedure(procedure));
    }
    for (const AudioObjectID device : devices_) AudioHardwareDestroyAggregateDevice(device);
    for (const AudioObjectID tap : taps_) destroyTap(tap);
  }

  AudioStatus propertyDataSize(AudioObjectID object, const AudioObjectAddress& address,
                               std::uint32_t& size) override {
    const AudioObjectPropertyAddress property = native(address);
    return note("AudioObjectGetPropertyDataSize",
                AudioObjectGetPropertyDataSize(object, &property, 0, nullptr, &size));
  }

  AudioStatus propertyData(AudioObjectID object, const AudioObjectAddress& address, std::span<std::byte> data,
                           std::uint32_t& size) override {
    const AudioObjectPropertyAddress property = native(address);
    size = static_cast<std::uint32_t>(data.size());
    return note("AudioObjectGetPropertyData",
                AudioObjectGetPropertyData(object, &property, 0, nullptr, &size, data.data()));
  }

  AudioStatus propertyString(AudioObjectID object, const AudioObjectAddress& address,
                             std::optional<std::string>& value) override {
    const AudioObjectPropertyAddress property = native(address);
    CFStringRef text = nullptr;
    UInt32 size = sizeof text;
    const AudioStatus status = note(
        "AudioObjectGetPropertyData", AudioObjectGetPropertyData(object, &property, 0, nullptr, &size, &text));
    value.reset();
    // The string arrives retained: ownership moves to ARC here.
    if (status == noErr && text != nullptr) value = plainText((__bridge_transfer NSString*)text);
    return status;
  }

  AudioStatus addPropertyListener(AudioObjectID object, const AudioObjectAddress& address,
                                  std::shared_ptr<SerialQueue> queue,
                                  std::shared_ptr<const AudioPropertyListener> listener) override {
    const AudioObjectPropertyAddress property = native(address);
    const auto called = listener;
    const AudioObjectPropertyListenerBlock block = ^(UInt32, const AudioObjectPropertyAddress*) {
      (*called)();
    };
    const AudioStatus status =
        note("AudioObjectAddPropertyListenerBlock",
             AudioObjectAddPropertyListenerBlock(object, &property, dispatchQueueOf(*queue), block));
    if (status == noErr) registrations_.push_back({object, address, std::move(queue), std::move(listener), block});
    return status;
  }

  AudioStatus removePropertyListener(AudioObjectID object, const AudioObjectAddress& address,
                                     const std::shared_ptr<SerialQueue>& queue,
                                     const std::shared_ptr<const AudioPropertyListener>& listener) override {
    const auto found = std::find_if(registrations_.begin(), registrations_.end(), [&](const Registration& known) {
      return known.object == object && known.address == address && known.queue == queue &&
             known.listener == listener;
    });
    if (found == registrations_.end()) return note("removing a listener that is not registered", kUnsupportedOperation);
    const AudioStatus status = note("AudioObjectRemovePropertyListenerBlock", removeListener(*found));
    registrations_.erase(found);
    return status;
  }

  AudioStatus createProcessTap(const ProcessTapDescription& description, AudioObjectID& tap) override {
    if (@available(macOS 14.2, *)) {
      NSMutableArray<NSNumber*>* processes = [NSMutableArray arrayWithCapacity:description.processes.size()];
      for (const AudioObjectID process : description.processes) [processes addObject:@(process)];
      CATapDescription* native = [[CATapDescription alloc] initWithProcesses:processes
                                                                andDeviceUID:objcText(description.deviceUID)
                                                                  withStream:static_cast<NSInteger>(description.stream)];
      NSUUID* _Nullable uuid = [[NSUUID alloc] initWithUUIDString:objcText(description.uuid)];
      if (uuid != nil) native.UUID = (NSUUID* _Nonnull)uuid;
      native.name = objcText(description.name);
      native.privateTap = description.isPrivate;
      native.muteBehavior = nativeBehavior(description.muteBehavior);
      const AudioStatus status = note("AudioHardwareCreateProcessTap", AudioHardwareCreateProcessTap(native, &tap));
      if (status == noErr) taps_.push_back(tap);
      return status;
    }
    return note("process taps need macOS 14.2", kUnsupportedOperation);
  }

  AudioStatus destroyProcessTap(AudioObjectID tap) override {
    std::erase(taps_, tap);
    return note("AudioHardwareDestroyProcessTap", destroyTap(tap));
  }

  AudioStatus createAggregateDevice(const AggregateDeviceDescription& description, AudioObjectID& device) override {
    NSDictionary<NSString*, id>* dictionary = objcDictionary(aggregateDictionary(description));
    const AudioStatus status =
        note("AudioHardwareCreateAggregateDevice",
             AudioHardwareCreateAggregateDevice((__bridge CFDictionaryRef)dictionary, &device));
    if (status == noErr) devices_.push_back(device);
    return status;
  }

  AudioStatus destroyAggregateDevice(AudioObjectID device) override {
    std::erase(devices_, device);
    return note("AudioHardwareDestroyAggregateDevice", AudioHardwareDestroyAggregateDevice(device));
  }

  AudioStatus createIOProc(AudioObjectID device, AudioIOBlock block, AudioIOProcID& procedure) override {
    AudioDeviceIOProcID native = nullptr;
    // No queue: the block runs on the device's realtime thread. It is copied here, on the control thread.
    const AudioStatus status =
        note("AudioDeviceCreateIOProcIDWithBlock",
             AudioDeviceCreateIOProcIDWithBlock(
                 &native, device, nil,
                 ^(const AudioTimeStamp*, const AudioBufferList* input, const AudioTimeStamp*, AudioBufferList* output,
                   const AudioTimeStamp*) {
                   block(reinterpret_cast<const MonitorAudioBufferList*>(input),
                         reinterpret_cast<MonitorAudioBufferList*>(output));
                 }));
    if (status != noErr) return status;
    procedure = reinterpret_cast<AudioIOProcID>(native);
    procedures_.emplace(procedure, device);
    return status;
  }

  AudioStatus destroyIOProc(AudioObjectID device, AudioIOProcID procedure) override {
    procedures_.erase(procedure);
    return note("AudioDeviceDestroyIOProcID", AudioDeviceDestroyIOProcID(device, nativeProcedure(procedure)));
  }

  AudioStatus startDevice(AudioObjectID device, AudioIOProcID procedure) override {
    return note("AudioDeviceStart", AudioDeviceStart(device, nativeProcedure(procedure)));
  }

  AudioStatus stopDevice(AudioObjectID device, AudioIOProcID procedure) override {
    return note("AudioDeviceStop", AudioDeviceStop(device, nativeProcedure(procedure)));
  }

  [[nodiscard]] AudioFailure lastFailure() const override { return lastFailure_; }

 private:
  AudioStatus note(const char* call, OSStatus status) {
    if (status != noErr) lastFailure_ = {status, std::string(call) + " returned " + std::to_string(status)};
    return status;
  }

  std::vector<Registration> registrations_;
  std::map<AudioIOProcID, AudioObjectID> procedures_;
  std::vector<AudioObjectID> devices_;
  std::vector<AudioObjectID> taps_;
  AudioFailure lastFailure_;
};

class CoreAudioHardwareProvider final : public AudioHardwareProvider {
 public:
  std::shared_ptr<AudioHardware> openView() override { return std::make_shared<CoreAudioHardware>(); }
};

}  // namespace

std::shared_ptr<AudioHardwareProvider> makeAudioHardwareProvider() {
  return std::make_shared<CoreAudioHardwareProvider>();
}

}  // namespace monitor::platform
