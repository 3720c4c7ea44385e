// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace monitor::vesk {

// What the other end of an output stream can show.
struct Terminal {
  bool interactive = false;            // a person's terminal, not a file or a pipe
  bool colours = false;                // may be sent escape sequences for colour
  std::optional<std::size_t> columns;  // width in cells; nothing where lines may be as long as they like

  friend bool operator==(const Terminal&, const Terminal&) = default;
};

// The facts a Terminal is decided from. The texts are environment variables, nothing where unset.
struct TerminalFacts {
  bool isTerminal = false;
  std::size_t windowColumns = 0;       // as the terminal reports it, 0 when it does not
  std::optional<std::string> noColor;  // NO_COLOR: any text but the empty one turns colours off
  std::optional<std::string> term;     // TERM: "dumb" can do nothing
  std::optional<std::string> columns;  // COLUMNS: the width where the terminal does not tell
};

[[nodiscard]] Terminal describeTerminal(const TerminalFacts& facts);

// Looks at an open file descriptor and the environment.
[[nodiscard]] Terminal terminalOf(int descriptor);

enum class Colour { Plain, Bold, Dim, Red, Green, Yellow };

// `text` in that colour where `terminal` shows colours, else unchanged.
[[nodiscard]] std::string coloured(const Terminal& terminal, Colour colour, std::string_view text);

}  // namespace monitor::vesk
