// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace monitor::vesk {

// `text` made safe to print: names of programs are chosen by others, and a control character in one could
// rewrite the screen. Controls, direction overrides and bytes that are not UTF-8 become U+FFFD.
[[nodiscard]] std::string printable(std::string_view text);

// Terminal cells that printable text takes: East Asian wide and full-width characters two, combining marks
// and other invisible ones none.
[[nodiscard]] std::size_t textWidth(std::string_view text);

// The longest start of `text` that fits `cells`, ending in "…" where something was left out. Never parts a
// character from its marks. Zero cells give the empty text.
[[nodiscard]] std::string shortened(std::string_view text, std::size_t cells);

}  // namespace monitor::vesk
