// SPDX-License-Identifier: MIT
#include "Tools/vesk/Top/TopTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <utility>

#include "Tools/vesk/GainText.h"
#include "Tools/vesk/Monitor/FigureText.h"
#include "Tools/vesk/TextWidth.h"

namespace monitor::vesk {
namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kLeastName = 12;
constexpr std::size_t kGoodName = 18;
constexpr int kNiceToHave = 5;  // columns from here on wait until the name has enough room

struct Column {
  const char* title;
  std::size_t width;
  int importance;  // from 1; the highest number goes first
  bool left = false;
  std::function<std::string(const TopRow&)> text;
};

std::string volumeText(const TopRow& row) {
  if (!row.playing) return "";
  const std::string percent = fmt::format("{:.0f} %", row.playing->gain * 100.0);
  // Held for a program that is silent just now.
  return row.playing->sounding ? percent : '(' + percent + ')';
}

std::string idleText(const std::optional<double>& seconds) {
  if (!seconds || !(*seconds < 1e8)) return "-";
  const auto whole = static_cast<long long>(*seconds);
  return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

template <class Field>
Column bytesColumn(const char* title, int importance, Field TopRow::*field) {
  return {title, 8, importance, false, [field](const TopRow& row) { return bytesText(row.*field); }};
}

bool any(const std::vector<TopRow>& rows, std::optional<double> TopRow::*field) {
  return std::any_of(rows.begin(), rows.end(),
                     [field](const TopRow& row) { return (row.*field).has_value(); });
}

// All columns after the name, as they stand from left to right.
std::vector<Column> columnsFor(const TopState& state, const std::vector<TopRow>& rows) {
  const int disk = state.sort == TopSort::Disk ? 1 : 4;
  std::vector<Column> columns;
  columns.push_back({"CPU %", 6, 1, false, [](const TopRow& row) { return figureText(row.cpu); }});
  columns.push_back(
      {"MEMORY", 8, 2, false, [](const TopRow& row) { return bytesText(static_cast<double>(row.memory)); }});
  if (state.projects) {
    columns.push_back({"PORTS", 11, 3, true, [](const TopRow& row) { return row.ports; }});
  } else {
    columns.push_back({"VOLUME", 7, 3, false, volumeText});
  }
  columns.push_back(bytesColumn("READ/S", disk, &TopRow::diskRead));
  columns.push_back(bytesColumn("WRITE/S", disk, &TopRow::diskWrite));
  if (state.projects) {
    columns.push_back({"IDLE", 8, 5, false, [](const TopRow& row) { return idleText(row.idleSeconds); }});
  }
  columns.push_back({"PROCS", 5, 6, false, [](const TopRow& row) { return std::to_string(row.processes); }});
  // Only the helper knows these three.
  if (any(rows, &TopRow::download)) columns.push_back(bytesColumn("DOWN/S", 7, &TopRow::download));
  if (any(rows, &TopRow::upload)) columns.push_back(bytesColumn("UP/S", 7, &TopRow::upload));
  if (any(rows, &TopRow::energy)) {
    columns.push_back({"ENERGY", 7, 8, false, [](const TopRow& row) { return figureText(row.energy); }});
  }
  columns.push_back({"ID", 32, 9, true, [](const TopRow& row) { return row.id; }});
  return columns;
}

std::size_t total(const std::vector<Column>& columns) {
  std::size_t sum = 0;
  for (const Column& column : columns) sum += kGap + column.width;
  return sum;
}

// Without the least important columns as long as the name has too little room.
void fit(std::vector<Column>& columns, std::size_t width) {
  while (!columns.empty()) {
    // The last one among equals.
    const auto least = std::max_element(
        columns.rbegin(), columns.rend(),
        [](const auto& one, const auto& other) { return one.importance < other.importance; });
    const std::size_t name = least->importance >= kNiceToHave ? kGoodName : kLeastName;
    if (total(columns) + name <= width) return;
    columns.erase(std::next(least).base());
  }
}

std::string cell(const std::string& text, std::size_t width, bool left) {
  const std::string fitted = shortened(text, width);
  const std::string fill(width - textWidth(fitted), ' ');
  return left ? fitted + fill : fill + fitted;
}

std::string withoutTail(std::string text) {
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

// What the table is sorted by is marked in the header.
std::string headerTitle(const Column& column, TopSort sort) {
  const std::string title = column.title;
  const bool sorted = (sort == TopSort::Cpu && title == "CPU %") ||
                      (sort == TopSort::Memory && title == "MEMORY") ||
                      (sort == TopSort::Disk && (title == "READ/S" || title == "WRITE/S"));
  return sorted ? '*' + title : title;
}

}  // namespace

TopTable makeTopTable(const TopState& state, const std::vector<TopRow>& rows, std::size_t first,
                      std::size_t count, std::size_t width) {
  std::vector<Column> columns = columnsFor(state, rows);
  fit(columns, width);
  const std::size_t taken = total(columns);
  const std::size_t nameWidth = width > taken ? width - taken : 0;
  const auto line = [&](const std::string& name, const std::function<std::string(const Column&)>& text) {
    std::string result = cell(name, nameWidth, true);
    for (const Column& column : columns) {
      result += std::string(kGap, ' ') + cell(text(column), column.width, column.left);
    }
    return withoutTail(std::move(result));
  };
  TopTable table;
  table.header = line(state.projects ? "PROJECT" : "APP",
                      [&state](const Column& column) { return headerTitle(column, state.sort); });
  for (std::size_t index = first; index < rows.size() && table.lines.size() < count; ++index) {
    const TopRow& row = rows[index];
    table.lines.push_back(line(row.name, [&row](const Column& column) { return column.text(row); }));
  }
  return table;
}

}  // namespace monitor::vesk
