// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

namespace monitor::vesk {

// Checks that an option is a number of seconds within [least, most]. Unlike the library's own range it
// refuses what is no number: "nan" is neither below nor above anything.
[[nodiscard]] CLI::Validator secondsWithin(double least, double most);

}  // namespace monitor::vesk
