// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace monitor::vesk {

// Reads a gain as a person writes it: linear ("0.4", "1e-3"), in percent ("40%", "40 %") or in decibels
// ("-8dB", any case), always with a point, whatever the locale. Gives 0.0…1.0, never negative zero. Throws
// CommandError (Usage) that says what was expected, with a suggestion where one is near.
[[nodiscard]] double parseGain(std::string_view text);

// A gain for people: "40 %", "39.8 %", "<0.1 %".
[[nodiscard]] std::string percentText(double gain);

// The same in decibels: "-8.0 dB"; "silent" for 0.
[[nodiscard]] std::string decibelText(double gain);

}  // namespace monitor::vesk
