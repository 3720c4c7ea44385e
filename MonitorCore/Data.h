// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace monitor {

// A run of bytes as it travels between processes. Not necessarily text, never NUL-terminated by contract.
using Data = std::string;

}  // namespace monitor
