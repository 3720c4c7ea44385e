// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "MonitorCore/Ports/AudioHardware.h"

namespace monitor {

struct DescriptionEntry;

// Keys and values in the order they are written.
using DescriptionDictionary = std::vector<DescriptionEntry>;

// One value of a description: a flag, a number, a text, a list or a dictionary.
struct DescriptionValue {
  std::variant<bool, std::uint32_t, std::string, std::vector<DescriptionValue>, DescriptionDictionary>
      content;

  friend bool operator==(const DescriptionValue& left, const DescriptionValue& right);
};

// Not a std::pair, which Clang instantiates while DescriptionValue is still incomplete.
struct DescriptionEntry {
  std::string first;  // the key
  DescriptionValue second;

  friend bool operator==(const DescriptionEntry&, const DescriptionEntry&) = default;
};

inline bool operator==(const DescriptionValue& left, const DescriptionValue& right) {
  return left.content == right.content;
}

// The dictionary that describes an aggregate device to an audio system that takes dictionaries. Here, and not
// in the adapter, so that its keys and values are tested everywhere.
[[nodiscard]] DescriptionDictionary aggregateDictionary(const AggregateDeviceDescription& description);

}  // namespace monitor
