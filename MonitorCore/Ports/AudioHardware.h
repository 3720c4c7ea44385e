// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "MonitorCore/Ports/AudioBufferList.h"
#include "MonitorCore/Ports/SerialQueue.h"

namespace monitor {

// A 32-bit id of an audio object; 0 is none. Ids are never reused while the connection to the audio system lives.
using AudioObjectID = std::uint32_t;
// 0 is success; anything else is the platform's own code (on Linux a negative errno value).
using AudioStatus = std::int32_t;
// An I/O procedure of a device; 0 is none.
using AudioIOProcID = std::uint64_t;

constexpr std::uint32_t fourCharacterCode(const char (&text)[5]) {
  std::uint32_t code = 0;
  for (std::size_t index = 0; index < 4; ++index) {
    code = (code << 8U) | static_cast<std::uint32_t>(static_cast<unsigned char>(text[index]));
  }
  return code;
}

// Which property of an object: selector, scope, element.
struct AudioObjectAddress {
  std::uint32_t selector = 0;
  std::uint32_t scope = 0;
  std::uint32_t element = 0;

  friend bool operator==(const AudioObjectAddress&, const AudioObjectAddress&) = default;
};

namespace audio {

inline constexpr AudioObjectID kSystemObject = 1;

inline constexpr std::uint32_t kScopeGlobal = fourCharacterCode("glob");
inline constexpr std::uint32_t kScopeOutput = fourCharacterCode("outp");
inline constexpr std::uint32_t kElementMain = 0;

// System object: an array of 32-bit object ids, one for each process that plays or has played.
inline constexpr AudioObjectAddress kProcessObjectList{fourCharacterCode("prs#"), kScopeGlobal, kElementMain};
// System object: the 32-bit id of the default output device; 0 when there is none.
inline constexpr AudioObjectAddress kDefaultOutputDevice{fourCharacterCode("dOut"), kScopeGlobal, kElementMain};
// Process object: signed 32-bit process id.
inline constexpr AudioObjectAddress kProcessPID{fourCharacterCode("ppid"), kScopeGlobal, kElementMain};
// Process object: unsigned 32-bit, 1 while the process produces output.
inline constexpr AudioObjectAddress kProcessIsRunningOutput{fourCharacterCode("piro"), kScopeGlobal,
                                                            kElementMain};
// Process object: string, the bundle identifier; empty when the process has none.
inline constexpr AudioObjectAddress kProcessBundleID{fourCharacterCode("pbid"), kScopeGlobal, kElementMain};
// Device: string, its persistent identifier.
inline constexpr AudioObjectAddress kDeviceUID{fourCharacterCode("uid "), kScopeGlobal, kElementMain};
// Device: AudioStreamFormat of its output.
inline constexpr AudioObjectAddress kStreamFormat{fourCharacterCode("sfmt"), kScopeOutput, kElementMain};
// Tap: AudioStreamFormat of what it delivers.
inline constexpr AudioObjectAddress kTapFormat{fourCharacterCode("tfmt"), kScopeGlobal, kElementMain};

inline constexpr std::uint32_t kFormatLinearPCM = fourCharacterCode("lpcm");
inline constexpr std::uint32_t kFormatFlagIsFloat = 1;

}  // namespace audio

// The shape of a stream: 40 bytes, the value of "sfmt" and "tfmt".
struct AudioStreamFormat {
  double sampleRate = 0.0;
  std::uint32_t formatID = 0;
  std::uint32_t formatFlags = 0;
  std::uint32_t bytesPerPacket = 0;
  std::uint32_t framesPerPacket = 0;
  std::uint32_t bytesPerFrame = 0;
  std::uint32_t channelsPerFrame = 0;
  std::uint32_t bitsPerChannel = 0;
  std::uint32_t reserved = 0;

  friend bool operator==(const AudioStreamFormat&, const AudioStreamFormat&) = default;
};
static_assert(sizeof(AudioStreamFormat) == 40);

enum class TapMuteBehavior : std::uint8_t { Unmuted = 0, Muted = 1, MutedWhenTapped = 2 };

// What to capture: the output of some processes to one stream of one device.
struct ProcessTapDescription {
  std::string name;
  std::string uuid;
  std::vector<AudioObjectID> processes;
  std::string deviceUID;
  std::int64_t stream = 0;
  bool isPrivate = false;
  TapMuteBehavior muteBehavior = TapMuteBehavior::Unmuted;

  friend bool operator==(const ProcessTapDescription&, const ProcessTapDescription&) = default;
};

// A device made of a real device's output and a tap as its input.
struct AggregateDeviceDescription {
  struct SubDevice {
    std::string uid;
    std::uint32_t channelsIn = 0;
    std::uint32_t channelsOut = 0;
    friend bool operator==(const SubDevice&, const SubDevice&) = default;
  };
  struct SubTap {
    std::string uid;
    bool drift = false;
    friend bool operator==(const SubTap&, const SubTap&) = default;
  };
  std::string name;
  std::string uid;
  bool isPrivate = false;
  bool isStacked = false;
  std::string master;  // uid of the sub-device that gives the clock
  std::vector<SubDevice> subdevices;
  std::vector<SubTap> taps;
  bool tapAutoStart = false;

  friend bool operator==(const AggregateDeviceDescription&, const AggregateDeviceDescription&) = default;
};

// Runs once per I/O cycle on the device's realtime thread: no allocation, lock, log or system call inside. Input and
// output never overlap in memory.
using AudioIOBlock = std::function<void(const MonitorAudioBufferList* input, MonitorAudioBufferList* output)>;

// Called on the queue given at registration whenever the property may have changed.
using AudioPropertyListener = std::function<void()>;

// Why the last call failed, in as much detail as the platform knows.
struct AudioFailure {
  AudioStatus code = 0;
  std::string text;

  friend bool operator==(const AudioFailure&, const AudioFailure&) = default;
};

// One client's view of the audio system: property reads, property listeners, process taps, aggregate devices and
// their I/O procedures. Selectors are the four-character codes above; an unknown object, property or size is an
// error status, never a crash.
//
// Threads: all calls of one view come from one queue; several views may be used at the same time. Every call returns
// within its deadline (1 s on Linux) and leaves nothing half done when it fails. Stopping and destroying take effect
// whatever their status says: a failure tells only that the platform could not confirm it. Listeners are only ever
// run on their queue. Destroying the view removes its listeners and everything it created, in the order I/O
// procedures, aggregate devices, taps.
class AudioHardware {
 public:
  virtual ~AudioHardware() = default;

  [[nodiscard]] virtual AudioStatus propertyDataSize(AudioObjectID object, const AudioObjectAddress& address,
                                                     std::uint32_t& size) = 0;
  // Fills at most `data.size()` bytes; `size` tells how many.
  [[nodiscard]] virtual AudioStatus propertyData(AudioObjectID object, const AudioObjectAddress& address,
                                                 std::span<std::byte> data, std::uint32_t& size) = 0;
  // Success with no value is a null string reference.
  [[nodiscard]] virtual AudioStatus propertyString(AudioObjectID object, const AudioObjectAddress& address,
                                                   std::optional<std::string>& value) = 0;

  // The same object, address, queue and listener identify the registration when it is removed. A notification that
  // was already submitted may still run after the removal.
  [[nodiscard]] virtual AudioStatus addPropertyListener(
      AudioObjectID object, const AudioObjectAddress& address, std::shared_ptr<SerialQueue> queue,
      std::shared_ptr<const AudioPropertyListener> listener) = 0;
  virtual AudioStatus removePropertyListener(AudioObjectID object, const AudioObjectAddress& address,
                                             const std::shared_ptr<SerialQueue>& queue,
                                             const std::shared_ptr<const AudioPropertyListener>& listener) = 0;

  [[nodiscard]] virtual AudioStatus createProcessTap(const ProcessTapDescription& description,
                                                     AudioObjectID& tap) = 0;
  virtual AudioStatus destroyProcessTap(AudioObjectID tap) = 0;

  [[nodiscard]] virtual AudioStatus createAggregateDevice(const AggregateDeviceDescription& description,
                                                          AudioObjectID& device) = 0;
  virtual AudioStatus destroyAggregateDevice(AudioObjectID device) = 0;

  // The block is owned by the procedure until destroyIOProc(); after that returns it is never entered again.
  [[nodiscard]] virtual AudioStatus createIOProc(AudioObjectID device, AudioIOBlock block,
                                                 AudioIOProcID& procedure) = 0;
  virtual AudioStatus destroyIOProc(AudioObjectID device, AudioIOProcID procedure) = 0;
  [[nodiscard]] virtual AudioStatus startDevice(AudioObjectID device, AudioIOProcID procedure) = 0;
  virtual AudioStatus stopDevice(AudioObjectID device, AudioIOProcID procedure) = 0;

  // The last call of this view that did not return 0, in the platform's own words; code 0 and no text before any.
  [[nodiscard]] virtual AudioFailure lastFailure() const = 0;
};

// Opens one view per client over whatever connection to the audio system the process keeps. Any thread.
class AudioHardwareProvider {
 public:
  virtual ~AudioHardwareProvider() = default;
  [[nodiscard]] virtual std::shared_ptr<AudioHardware> openView() = 0;
};

}  // namespace monitor
