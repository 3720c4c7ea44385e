// SPDX-License-Identifier: MIT
#pragma once

#include <ostream>
#include <string_view>

#include "Tools/vesk/Terminal.h"

namespace monitor::vesk {

// Where a command writes: results to `out`, everything said about them to `err`.
struct Console {
  std::ostream& out;
  std::ostream& err;
  Terminal outTerminal;
  Terminal errTerminal;

  // One "vesk: …" line on `err` for each line of `text`.
  void complain(std::string_view text) const;
};

}  // namespace monitor::vesk
