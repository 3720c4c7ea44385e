// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace monitor::vesk {

// The manual page of the whole command line in roff, from the same descriptions that --help prints. `name` is
// the program's, `version` stands in the footer.
[[nodiscard]] std::string manualPage(const CLI::App& app, const std::string& version);

}  // namespace monitor::vesk
