// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Tools/vesk/Top/TopState.h"

namespace monitor::vesk {

enum class TopKey : std::uint8_t {
  Quit,
  SortByCpu,
  SortByMemory,
  SortByDisk,
  Projects,
  Pause,
  Help,
  Redraw,
  Up,
  Down,
  PageUp,
  PageDown,
  Home,
  End,
};

// Turns what a terminal sends into keys. A sequence may arrive in pieces; what means nothing is dropped.
class KeyDecoder {
 public:
  [[nodiscard]] std::vector<TopKey> feed(std::string_view bytes);

 private:
  std::string sequence_;  // an escape sequence whose end has not arrived
};

// What a key does to the view. `pageRows` is how many rows the table shows. Quit and Redraw do nothing here.
void applyKey(TopState& state, TopKey key, std::size_t pageRows);

}  // namespace monitor::vesk
