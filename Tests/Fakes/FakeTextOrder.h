// SPDX-License-Identifier: MIT
#pragma once

#include <cctype>
#include <cstddef>
#include <string_view>

#include "MonitorMac/Ports/TextOrder.h"

namespace monitor::fakes {

// ASCII letters without their case, runs of digits by value.
struct FakeTextOrder final : TextOrder {
  [[nodiscard]] bool precedes(std::string_view left, std::string_view right) const override {
    while (!left.empty() && !right.empty()) {
      if (isDigit(left) && isDigit(right)) {
        const std::size_t leftNumber = takeNumber(left);
        const std::size_t rightNumber = takeNumber(right);
        if (leftNumber != rightNumber) return leftNumber < rightNumber;
        continue;
      }
      const int leftLetter = std::tolower(static_cast<unsigned char>(left.front()));
      const int rightLetter = std::tolower(static_cast<unsigned char>(right.front()));
      if (leftLetter != rightLetter) return leftLetter < rightLetter;
      left.remove_prefix(1);
      right.remove_prefix(1);
    }
    return left.size() < right.size();
  }

 private:
  static bool isDigit(std::string_view text) {
    return std::isdigit(static_cast<unsigned char>(text.front())) != 0;
  }
  static std::size_t takeNumber(std::string_view& text) {
    std::size_t number = 0;
    for (; !text.empty() && isDigit(text); text.remove_prefix(1)) {
      number = number * 10 + static_cast<std::size_t>(text.front() - '0');
    }
    return number;
  }
};

}  // namespace monitor::fakes
