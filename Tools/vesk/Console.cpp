// SPDX-License-Identifier: MIT
#include "Tools/vesk/Console.h"

#include "Tools/vesk/TextWidth.h"

namespace monitor::vesk {

void Console::complain(std::string_view text) const {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    err << coloured(errTerminal, Colour::Red, "vesk:") << ' ' << printable(text.substr(0, end)) << '\n';
    text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
  }
  err.flush();
}

}  // namespace monitor::vesk
