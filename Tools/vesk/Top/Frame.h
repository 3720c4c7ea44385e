// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace monitor::vesk {

// The bytes that turn a screen showing `before` into one showing `after`, line by line from the top: only
// lines that differ are sent, so that nothing flickers and little goes over a slow line. An empty `before`
// stands for a screen of unknown content, which is wiped. Lines leave the last cell of the screen free.
[[nodiscard]] std::string frameUpdate(const std::vector<std::string>& before,
                                      const std::vector<std::string>& after);

}  // namespace monitor::vesk
