// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Tools/vesk/Terminal.h"
#include "Tools/vesk/TimeZone.h"
#include "Tools/vesk/Top/TopState.h"

namespace monitor::vesk {

struct ScreenSize {  // cells
  std::size_t rows = 24;
  std::size_t columns = 80;

  friend bool operator==(const ScreenSize&, const ScreenSize&) = default;
};

// The whole screen: exactly `size.rows` lines, none wider than `size.columns - 1` cells, since writing into
// the last cell makes some terminals wrap. The only escape sequences are colours, and only where `terminal`
// has them. What does not fit is left out, the least telling first.
[[nodiscard]] std::vector<std::string> renderTop(const TopState& state, ScreenSize size,
                                                 const Terminal& terminal, const TimeZone& zone);

// How many rows the table has on such a screen.
[[nodiscard]] std::size_t tableRows(const TopState& state, ScreenSize size);

}  // namespace monitor::vesk
