// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string_view>

namespace monitor::platform {

// Ports of listening sockets by the sockets' inode numbers.
using ListeningSockets = std::map<std::uint64_t, std::uint16_t>;

// Adds what a text in the form of /proc/net/tcp or tcp6 lists as listening. Lines that make no sense are
// skipped.
void addListeningSockets(std::string_view table, ListeningSockets& sockets);

// The inode number in the name of a descriptor's link, "socket:[1234]"; nothing for any other.
[[nodiscard]] std::optional<std::uint64_t> socketInode(std::string_view link);

}  // namespace monitor::platform
