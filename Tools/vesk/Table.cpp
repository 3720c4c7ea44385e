// SPDX-License-Identifier: MIT
#include "Tools/vesk/Table.h"

#include <algorithm>
#include <cassert>
#include <numeric>
#include <utility>

#include "Tools/vesk/TextWidth.h"

namespace monitor::vesk {
namespace {

constexpr std::size_t kGap = 2;

std::string padded(const std::string& cell, std::size_t width, Align align) {
  std::string text = shortened(cell, width);
  const std::string fill(width - textWidth(text), ' ');
  return align == Align::Left ? text + fill : fill + text;
}

}  // namespace

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

void Table::add(std::vector<std::string> cells) {
  assert(cells.size() == columns_.size());
  for (std::string& cell : cells) cell = printable(cell);
  rows_.push_back(std::move(cells));
}

std::vector<std::size_t> Table::widths(const Terminal& terminal) const {
  std::vector<std::size_t> widths;
  for (const Column& column : columns_) widths.push_back(textWidth(column.title));
  for (const auto& row : rows_) {
    for (std::size_t index = 0; index < row.size(); ++index) {
      widths[index] = std::max(widths[index], textWidth(row[index]));
    }
  }
  if (!terminal.columns) return widths;
  std::size_t total = std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1));
  while (total > *terminal.columns) {
    std::size_t widest = columns_.size();
    for (std::size_t index = 0; index < columns_.size(); ++index) {
      if (!columns_[index].mayShrink || widths[index] <= textWidth(columns_[index].title)) continue;
      if (widest == columns_.size() || widths[index] > widths[widest]) widest = index;
    }
    if (widest == columns_.size()) break;
    --widths[widest];
    --total;
  }
  return widths;
}

std::string Table::text(const Terminal& terminal) const {
  const std::vector<std::size_t> cellWidths = widths(terminal);
  std::string result;
  const auto line = [&](const auto& cellAt, Colour colour) {
    std::string text;
    for (std::size_t index = 0; index < columns_.size(); ++index) {
      if (index > 0) text.append(kGap, ' ');
      text += padded(cellAt(index), cellWidths[index], columns_[index].align);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    result += coloured(terminal, colour, text) + '\n';
  };
  line([&](std::size_t index) { return columns_[index].title; }, Colour::Bold);
  for (const auto& row : rows_) line([&](std::size_t index) { return row[index]; }, Colour::Plain);
  return result;
}

}  // namespace monitor::vesk
