// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace monitor {

// One process incarnation. `start` is the start time in microseconds since 1970 as the platform reports it; with
// `pid` it tells a process apart from a later one that reuses the pid.
struct ProcessKey {
  std::int32_t pid = 0;
  std::uint64_t start = 0;

  // Decimal pid, a colon, decimal start: "812:5000".
  [[nodiscard]] std::string id() const;

  friend bool operator==(const ProcessKey&, const ProcessKey&) = default;
};

// The identity text of a process that belongs to no bundle: "process:" followed by the key's id.
[[nodiscard]] std::string fallbackIdentity(const ProcessKey& key);

}  // namespace monitor

template <>
struct std::hash<monitor::ProcessKey> {
  std::size_t operator()(const monitor::ProcessKey& key) const noexcept;
};
