// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace monitor {

// Ends the program for a broken promise of our own code, never for input: writes "vesk: " and `message` to
// standard error and aborts.
[[noreturn]] void stopForProgrammingError(std::string_view message);

}  // namespace monitor
