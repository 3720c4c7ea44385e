// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace monitor {

// The order in which a file browser lists names: by the user's locale, letter case ignored, numbers by value.
// Thread-safe.
class TextOrder {
 public:
  virtual ~TextOrder() = default;
  [[nodiscard]] virtual bool precedes(std::string_view left, std::string_view right) const = 0;
};

}  // namespace monitor
