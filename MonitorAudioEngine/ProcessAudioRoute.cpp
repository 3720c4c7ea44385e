// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/ProcessAudioRoute.h"

#include <utility>

#include <fmt/format.h>

#include "MonitorAudioEngine/AudioProperties.h"
#include "MonitorAudioEngine/AudioRouteError.h"

namespace monitor {
namespace {

constexpr std::uint32_t kChannels = 2;
constexpr std::uint32_t kBits = 32;

bool isStereoFloat(const AudioStreamFormat& format) {
  return format.channelsPerFrame == kChannels && format.formatID == audio::kFormatLinearPCM &&
         (format.formatFlags & audio::kFormatFlagIsFloat) != 0 && format.bitsPerChannel == kBits;
}

std::string describe(const AudioStreamFormat& format) {
  std::string samples;
  if (format.formatID != audio::kFormatLinearPCM) {
    samples = fmt::format("format \"{}\"", characterCodeText(format.formatID));
  } else {
    const bool isFloat = (format.formatFlags & audio::kFormatFlagIsFloat) != 0;
    samples = fmt::format("{}-bit {}", format.bitsPerChannel, isFloat ? "float" : "integer");
  }
  return fmt::format("{} channel{} of {} at {} Hz", format.channelsPerFrame,
                     format.channelsPerFrame == 1 ? "" : "s", samples, format.sampleRate);
}

// A device of a foreign name is quoted as it is.
std::string describeDevice(AudioObjectID output, const std::string& uid) {
  return fmt::format("output device {} \"{}\"", output, uid);
}

ProcessTapDescription describeTap(const std::vector<AudioObjectID>& objects, const std::string& deviceUID,
                                  std::string uuid) {
  ProcessTapDescription tap;
  tap.name = "Quorvantis App Volume";
  tap.uuid = std::move(uuid);
  tap.processes = objects;
  tap.deviceUID = deviceUID;
  tap.stream = 0;
  tap.isPrivate = true;
  tap.muteBehavior = TapMuteBehavior::MutedWhenTapped;
  return tap;
}

AggregateDeviceDescription describeAggregate(const std::string& deviceUID, const std::string& tapUUID,
                                             std::string uid) {
  AggregateDeviceDescription device;
  device.name = "Quorvantis private app output";
  device.uid = std::move(uid);
  device.isPrivate = true;
  device.isStacked = false;
  device.master = deviceUID;
  device.subdevices = {{deviceUID, 0, kChannels}};
  device.taps = {{tapUUID, true}};
  device.tapAutoStart = false;
  return device;
}

// What the device's realtime thread runs. The bare pointer: the route destroys the procedure before the gain
// state.
AudioIOBlock makeIOBlock(MonitorGainState* state, SilenceWatch* silence) {
  return [state, silence](const MonitorAudioBufferList* input, MonitorAudioBufferList* output) {
    if (silence != nullptr) silence->listen(*input);
    MonitorGainRender(state, input, output);
  };
}

}  // namespace

// The fields are complete after this constructor, so that the destructor runs when building fails.
ProcessAudioRoute::ProcessAudioRoute(AudioHardware& hardware, std::vector<ProcessKey> keys,
                                     std::vector<AudioObjectID> objects, double now)
    : hardware_(hardware), keys_(std::move(keys)), objects_(std::move(objects)), lastActivity_(now) {}

ProcessAudioRoute::ProcessAudioRoute(AudioHardware& hardware, std::vector<ProcessKey> keys,
                                     std::vector<AudioObjectID> objects, AudioObjectID output,
                                     const UuidSource& makeUuid, double now, SilenceWatch* silence)
    : ProcessAudioRoute(hardware, std::move(keys), std::move(objects), now) {
  build(output, makeUuid, silence);
}

ProcessAudioRoute::~ProcessAudioRoute() {
  tearDown();
}

void ProcessAudioRoute::build(AudioObjectID output, const UuidSource& makeUuid, SilenceWatch* silence) {
  const std::string uid = readString(hardware_, output, audio::kDeviceUID);
  const auto format = readValue<AudioStreamFormat>(hardware_, output, audio::kStreamFormat);
  if (!isStereoFloat(format)) {
    throw AudioRouteError::invalidFormat(fmt::format("{} has {}, expected 2 channels of 32-bit float",
                                                     describeDevice(output, uid), describe(format)));
  }

  const ProcessTapDescription tap = describeTap(objects_, uid, makeUuid());
  checkAudio(hardware_, hardware_.createProcessTap(tap, tap_));
  const auto tapped = readValue<AudioStreamFormat>(hardware_, tap_, audio::kTapFormat);
  if (!isStereoFloat(tapped) || tapped.sampleRate != format.sampleRate) {
    throw AudioRouteError::invalidFormat(
        fmt::format("the tap on {} delivers {}, expected 2 channels of 32-bit float at {} Hz",
                    describeDevice(output, uid), describe(tapped), format.sampleRate));
  }

  checkAudio(hardware_,
             hardware_.createAggregateDevice(describeAggregate(uid, tap.uuid, makeUuid()), device_));
  checkAudio(hardware_, hardware_.createIOProc(device_, makeIOBlock(buffer_.pointer(), silence), io_));
  checkAudio(hardware_, hardware_.startDevice(device_, io_));
}

void ProcessAudioRoute::tearDown() noexcept {
  if (io_ != 0) {
    hardware_.stopDevice(device_, io_);
    hardware_.destroyIOProc(device_, io_);
    io_ = 0;
  }
  if (device_ != 0) {
    hardware_.destroyAggregateDevice(device_);
    device_ = 0;
  }
  if (tap_ != 0) {
    hardware_.destroyProcessTap(tap_);
    tap_ = 0;
  }
}

void ProcessAudioRoute::setGain(double gain) {
  gain_ = gain;
  MonitorGainSet(buffer_.pointer(), static_cast<float>(gain));
}

void ProcessAudioRoute::observe(bool reportsOutput, double now) {
  const std::uint64_t frames = MonitorGainFrames(buffer_.pointer());
  if (frames != lastFrames_) {
    lastFrames_ = frames;
    lastActivity_ = now;
  }
  if (!reportsOutput) lastActivity_ = now;
  noteOutput(reportsOutput, now);
}

void ProcessAudioRoute::noteOutput(bool reportsOutput, double now) {
  if (!reportsOutput) {
    outputSince_.reset();
  } else if (!outputSince_) {
    outputSince_ = now;
  }
}

}  // namespace monitor
