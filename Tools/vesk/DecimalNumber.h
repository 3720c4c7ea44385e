// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string_view>

namespace monitor::vesk {

// Takes the number that `text` begins with off it: "12", "-0.5", ".5", "1e-3", with a point whatever the
// locale. Nothing, and `text` as it was, where it begins with none or with one that no double holds. Instead
// of std::from_chars, which a Mac's library has for whole numbers only.
[[nodiscard]] std::optional<double> takeDecimal(std::string_view& text);

}  // namespace monitor::vesk
