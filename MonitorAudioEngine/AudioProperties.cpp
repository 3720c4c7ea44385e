// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/AudioProperties.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "MonitorAudioEngine/AudioRouteError.h"

namespace monitor {

void checkAudio(const AudioHardware& hardware, AudioStatus status) {
  if (status != 0) throw AudioRouteError::system(status, hardware.lastFailure());
}

void readProperty(AudioHardware& hardware, AudioObjectID object, const AudioObjectAddress& address,
                  std::span<std::byte> value) {
  std::uint32_t size = 0;
  checkAudio(hardware, hardware.propertyData(object, address, value, size));
}

std::vector<AudioObjectID> readObjectList(AudioHardware& hardware, AudioObjectID object,
                                          const AudioObjectAddress& address) {
  std::uint32_t size = 0;
  checkAudio(hardware, hardware.propertyDataSize(object, address, size));
  if (size > kLargestObjectListBytes) {
    throw AudioRouteError::invalidFormat(fmt::format("the list \"{}\" has {} bytes, expected at most {}",
                                                     characterCodeText(address.selector), size,
                                                     kLargestObjectListBytes));
  }
  std::vector<AudioObjectID> objects(size / sizeof(AudioObjectID));
  if (objects.empty()) return objects;
  // The list may have changed since its size was asked for.
  const auto bytes = std::as_writable_bytes(std::span(objects));
  std::uint32_t filled = 0;
  checkAudio(hardware, hardware.propertyData(object, address, bytes, filled));
  objects.resize(std::min(objects.size(), filled / sizeof(AudioObjectID)));
  return objects;
}

std::string readString(AudioHardware& hardware, AudioObjectID object, const AudioObjectAddress& address) {
  std::optional<std::string> value;
  checkAudio(hardware, hardware.propertyString(object, address, value));
  if (!value) {
    throw AudioRouteError::invalidFormat(fmt::format("property \"{}\" of audio object {} has no text",
                                                     characterCodeText(address.selector), object));
  }
  return std::move(*value);
}

std::string characterCodeText(std::uint32_t code) {
  std::string text;
  for (const unsigned shift : {24U, 16U, 8U, 0U}) {
    const auto character = static_cast<char>((code >> shift) & 0xFFU);
    text += character >= ' ' && character <= '~' ? character : '?';
  }
  return text;
}

}  // namespace monitor
