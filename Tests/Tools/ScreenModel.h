// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace monitor::vesk {

// A terminal as far as a live view uses one: what its bytes leave on the screen, and which modes they leave
// switched on. Every code point takes one cell. A sequence it does not know is kept in `unknown`, where a
// test finds it.
class ScreenModel {
 public:
  ScreenModel(std::size_t rows, std::size_t columns) { resize(rows, columns); }

  void resize(std::size_t rows, std::size_t columns) {
    columns_ = columns;
    cells_.assign(rows, std::vector<std::string>(columns, " "));
    row_ = column_ = 0;
  }
  // Sequences and code points may be cut anywhere.
  void feed(std::string_view bytes) {
    pending_ += bytes;
    while (!pending_.empty()) {
      const std::size_t used = pending_[0] == '\x1b' ? sequence() : character();
      if (used == 0) return;  // the rest has not arrived
      pending_.erase(0, used);
    }
  }
  // A line without the blanks at its end.
  [[nodiscard]] std::string line(std::size_t row) const {
    std::string text;
    for (const std::string& cell : cells_.at(row)) text += cell;
    return text.erase(text.find_last_not_of(' ') + 1);
  }
  [[nodiscard]] std::vector<std::string> lines() const {
    std::vector<std::string> all;
    for (std::size_t row = 0; row < cells_.size(); ++row) all.push_back(line(row));
    return all;
  }
  [[nodiscard]] bool shows(std::string_view text) const {
    for (const std::string& each : lines()) {
      if (each.find(text) != std::string::npos) return true;
    }
    return false;
  }

  bool otherScreen = false;
  bool cursor = true;
  bool wraps = true;
  std::set<std::string> colours;     // SGR parameters that were used
  std::vector<std::string> unknown;  // sequences
  std::size_t wipes = 0;             // of the whole screen
  std::size_t writes = 0;            // characters

 private:
  std::size_t sequence() {
    if (pending_.size() < 2) return 0;
    if (pending_[1] != '[') {
      unknown.push_back(pending_.substr(0, 2));
      return 2;
    }
    const std::size_t end = pending_.find_first_not_of("0123456789;?", 2);
    if (end == std::string::npos) return 0;
    perform(pending_.substr(2, end - 2), pending_[end]);
    return end + 1;
  }
  void perform(const std::string& parameters, char final) {
    if (final == 'H') {
      const std::size_t separator = parameters.find(';');
      row_ = std::stoul(parameters.substr(0, separator)) - 1;
      column_ = std::stoul(parameters.substr(separator + 1)) - 1;
    } else if (final == 'K' && parameters.empty()) {
      if (row_ >= cells_.size()) return;  // of a frame for the size before
      for (std::size_t column = column_; column < columns_; ++column) cells_.at(row_)[column] = " ";
    } else if (final == 'J' && parameters == "2") {
      ++wipes;
      for (auto& row : cells_) row.assign(columns_, " ");
    } else if (final == 'm') {
      colours.insert(parameters);
    } else if (final == 'h' || final == 'l') {
      mode(parameters, final == 'h');
    } else {
      unknown.push_back(parameters + final);
    }
  }
  void mode(const std::string& number, bool on) {
    if (number == "?1049") {
      otherScreen = on;
    } else if (number == "?25") {
      cursor = on;
    } else if (number == "?7") {
      wraps = on;
    } else {
      unknown.push_back(number + (on ? 'h' : 'l'));
    }
  }
  std::size_t character() {
    const auto first = static_cast<unsigned char>(pending_[0]);
    const std::size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (pending_.size() < length) return 0;
    if (first == '\n') {
      ++row_;
    } else if (first == '\r') {
      column_ = 0;
    } else if (first < 0x20) {
      unknown.push_back(pending_.substr(0, 1));
    } else if (row_ < cells_.size() && column_ < columns_) {
      cells_[row_][column_++] = pending_.substr(0, length);
      ++writes;
    }
    return length;
  }

  std::size_t columns_ = 0;
  std::vector<std::vector<std::string>> cells_;
  std::size_t row_ = 0;
  std::size_t column_ = 0;
  std::string pending_;
};

}  // namespace monitor::vesk
