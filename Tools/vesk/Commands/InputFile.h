// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Tools/vesk/ExitCode.h"

namespace monitor::vesk {

// All bytes of a file that a person named. Throws CommandError where it cannot be read or is larger than 64
// MiB.
[[nodiscard]] std::string readInputFile(const std::string& path);

// What a decoder says about the contents of `path`, as the error that ends the command.
[[nodiscard]] CommandError badInput(const std::string& path, const std::string& what);

}  // namespace monitor::vesk
