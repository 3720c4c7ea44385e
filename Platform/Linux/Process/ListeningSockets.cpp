// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/ListeningSockets.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <system_error>

namespace monitor::platform {
namespace {

constexpr std::size_t kLocalAddress = 1;
constexpr std::size_t kState = 3;
constexpr std::size_t kInode = 9;
constexpr std::string_view kListening = "0A";

template <typename Number>
std::optional<Number> parse(std::string_view text, int base) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

using Columns = std::array<std::string_view, kInode + 1>;

std::optional<Columns> columnsOf(std::string_view line) {
  Columns columns;
  for (std::string_view& column : columns) {
    const std::size_t begin = line.find_first_not_of(' ');
    if (begin == std::string_view::npos) return std::nullopt;
    line.remove_prefix(begin);
    column = line.substr(0, std::min(line.find(' '), line.size()));
    line.remove_prefix(column.size());
  }
  return columns;
}

void addLine(std::string_view line, ListeningSockets& sockets) {
  const auto columns = columnsOf(line);
  if (!columns || (*columns)[kState] != kListening) return;
  const std::string_view address = (*columns)[kLocalAddress];
  const auto port = parse<std::uint16_t>(address.substr(address.rfind(':') + 1), 16);
  const auto inode = parse<std::uint64_t>((*columns)[kInode], 10);
  if (port && *port != 0 && inode && *inode != 0) sockets.emplace(*inode, *port);
}

}  // namespace

void addListeningSockets(std::string_view table, ListeningSockets& sockets) {
  while (!table.empty()) {
    const std::size_t end = std::min(table.find('\n'), table.size());
    addLine(table.substr(0, end), sockets);
    table.remove_prefix(std::min(end + 1, table.size()));
  }
}

std::optional<std::uint64_t> socketInode(std::string_view link) {
  constexpr std::string_view kPrefix = "socket:[";
  if (!link.starts_with(kPrefix) || !link.ends_with(']')) return std::nullopt;
  return parse<std::uint64_t>(link.substr(kPrefix.size(), link.size() - kPrefix.size() - 1), 10);
}

}  // namespace monitor::platform
