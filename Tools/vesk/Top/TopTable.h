// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Tools/vesk/Top/TopState.h"

namespace monitor::vesk {

// The table of `vesk top`: as many columns as `width` cells hold, the first one as wide as there is room for.
struct TopTable {
  std::string header;
  std::vector<std::string> lines;  // one for each of the rows that are to be seen
};

// The rows from `first` on, `count` of them at most. All of `rows` have a say in which columns there are, so
// that scrolling does not move them.
[[nodiscard]] TopTable makeTopTable(const TopState& state, const std::vector<TopRow>& rows, std::size_t first,
                                    std::size_t count, std::size_t width);

}  // namespace monitor::vesk
