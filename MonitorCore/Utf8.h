// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace monitor {

// The text with every ill-formed UTF-8 sequence replaced by U+FFFD; well-formed text comes back as it is.
[[nodiscard]] std::string repairedUtf8(std::string text);

}  // namespace monitor
