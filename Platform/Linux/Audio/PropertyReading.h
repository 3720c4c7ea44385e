// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/Ports/AudioHardware.h"
#include "Platform/Linux/Audio/ObjectTable.h"

namespace monitor::platform {

enum class PropertyKind : std::uint8_t { Unknown, Fixed, List, Text };

// What kind of value a property of an object has; Unknown when either does not exist.
[[nodiscard]] PropertyKind propertyKind(const ObjectTable& table, AudioObjectID object,
                                        const AudioObjectAddress& address);
// The bytes of a Fixed or List property, in the machine's own byte order.
[[nodiscard]] std::vector<std::byte> propertyBytes(const ObjectTable& table, AudioObjectID object,
                                                   const AudioObjectAddress& address);

}  // namespace monitor::platform
