// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Tools/vesk/Terminal.h"

namespace monitor::vesk {

enum class Align : std::uint8_t { Left, Right };

struct Column {
  std::string title;
  Align align = Align::Left;
  bool mayShrink = false;  // gives way where the terminal is too narrow, down to its title's width
};

// Rows under one header line, columns aligned by the cells their texts take and parted by two spaces. Cells
// are made printable on the way in.
class Table {
 public:
  explicit Table(std::vector<Column> columns);
  // As many cells as there are columns.
  void add(std::vector<std::string> cells);
  [[nodiscard]] bool empty() const { return rows_.empty(); }
  // Header and rows, a line feed after each, no spaces at the ends of lines. Columns shrink to fit the
  // terminal's width, the widest first; a file or pipe gets every cell whole.
  [[nodiscard]] std::string text(const Terminal& terminal) const;

 private:
  [[nodiscard]] std::vector<std::size_t> widths(const Terminal& terminal) const;

  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace monitor::vesk
