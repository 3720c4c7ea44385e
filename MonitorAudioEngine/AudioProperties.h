// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "MonitorCore/Ports/AudioHardware.h"

// The engine's property reads. They throw AudioRouteError: `system` for a status that is not 0, with the
// audio system's own words as its cause.
namespace monitor {

// A list of audio objects is believed up to this size.
inline constexpr std::uint32_t kLargestObjectListBytes = 131'072;

// Throws unless `status` is 0. To be called right after the call that returned it.
void checkAudio(const AudioHardware& hardware, AudioStatus status);

void readProperty(AudioHardware& hardware, AudioObjectID object, const AudioObjectAddress& address,
                  std::span<std::byte> value);

// A value of fixed size; what the property does not fill is zero.
template <class Value>
  requires std::is_trivially_copyable_v<Value>
[[nodiscard]] Value readValue(AudioHardware& hardware, AudioObjectID object,
                              const AudioObjectAddress& address) {
  Value value{};
  readProperty(hardware, object, address, std::as_writable_bytes(std::span(&value, 1)));
  return value;
}

// Empty when the announced size holds no id; `invalidFormat` when it is above kLargestObjectListBytes.
[[nodiscard]] std::vector<AudioObjectID> readObjectList(AudioHardware& hardware, AudioObjectID object,
                                                        const AudioObjectAddress& address);

// `invalidFormat` for a null string.
[[nodiscard]] std::string readString(AudioHardware& hardware, AudioObjectID object,
                                     const AudioObjectAddress& address);

// The four characters of a selector or format.
[[nodiscard]] std::string characterCodeText(std::uint32_t code);

}  // namespace monitor
