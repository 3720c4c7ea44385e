// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/PropertyReading.h"

#include <cstring>

namespace monitor::platform {

namespace {

template <typename Value>
void append(std::vector<std::byte>& bytes, const Value& value) {
  const std::size_t end = bytes.size();
  bytes.resize(end + sizeof value);
  std::memcpy(bytes.data() + end, &value, sizeof value);
}

}  // namespace

PropertyKind propertyKind(const ObjectTable& table, AudioObjectID object, const AudioObjectAddress& address) {
  using enum PropertyKind;
  if (object == audio::kSystemObject) {
    if (address == audio::kProcessObjectList) return List;
    return address == audio::kDefaultOutputDevice ? Fixed : Unknown;
  }
  if (table.process(object) != nullptr) {
    if (address == audio::kProcessBundleID) return Text;
    return address == audio::kProcessPID || address == audio::kProcessIsRunningOutput ? Fixed : Unknown;
  }
  if (table.devices.contains(object)) {
    if (address == audio::kDeviceUID) return Text;
    return address == audio::kStreamFormat ? Fixed : Unknown;
  }
  if (table.taps.contains(object)) return address == audio::kTapFormat ? Fixed : Unknown;
  if (table.aggregates.contains(object)) return address == audio::kDeviceUID ? Text : Unknown;
  return Unknown;
}

std::vector<std::byte> propertyBytes(const ObjectTable& table, AudioObjectID object,
                                     const AudioObjectAddress& address) {
  std::vector<std::byte> bytes;
  if (address == audio::kProcessObjectList) {
    for (const auto& process : table.processes) append(bytes, process.id);
  } else if (address == audio::kDefaultOutputDevice) {
    append(bytes, table.defaultDevice);
  } else if (address == audio::kProcessPID) {
    append(bytes, table.process(object)->pid);
  } else if (address == audio::kProcessIsRunningOutput) {
    append(bytes, static_cast<std::uint32_t>(table.process(object)->running ? 1 : 0));
  } else if (address == audio::kStreamFormat) {
    append(bytes, table.devices.at(object).format);
  } else if (address == audio::kTapFormat) {
    append(bytes, table.taps.at(object));
  }
  return bytes;
}

}  // namespace monitor::platform
