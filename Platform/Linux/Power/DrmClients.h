// SPDX-License-Identifier: MIT
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace monitor::platform {

// How long one engine of a graphics card has worked for one client: either nanoseconds, or cycles next to all
// the cycles that passed.
struct DrmEngine {
  std::optional<std::uint64_t> nanoseconds;
  std::optional<std::uint64_t> cycles;
  std::optional<std::uint64_t> totalCycles;
  std::uint64_t capacity = 1;  // engines of that kind

  friend bool operator==(const DrmEngine&, const DrmEngine&) = default;
};

// One open file of a graphics card; several descriptors, also of several processes, may stand for it.
struct DrmClientKey {
  std::string driver;
  std::string device;  // bus address; empty for a card that is on none
  std::uint64_t id = 0;

  friend auto operator<=>(const DrmClientKey&, const DrmClientKey&) = default;
};

using DrmEngines = std::map<std::string, DrmEngine>;  // by the engine's name: "render", "gfx", "rcs"
using DrmClients = std::map<DrmClientKey, DrmEngines>;

// The client in the text of a /proc/PID/fdinfo file; nothing for other files and for drivers that count
// nothing.
[[nodiscard]] std::optional<DrmClients::value_type> parseDrmClient(std::string_view text);

// For how many seconds an engine worked between two looks at a client that lie `seconds` apart. `before` is
// absent for a client that came between them. Counters that step back, as drivers may, did not grow.
[[nodiscard]] double busySeconds(const DrmEngine* before, const DrmEngine& after, double seconds);

// The busy share, 0 to 1, of the busiest engine of the card at `device`. Nothing when no client of that card
// is known.
[[nodiscard]] std::optional<double> busiestEngine(const DrmClients& before, const DrmClients& after,
                                                  std::string_view device, double seconds);

// The seconds that all engines worked for one client.
[[nodiscard]] double clientBusySeconds(const DrmClients& before, const DrmClients::value_type& after,
                                       double seconds);

}  // namespace monitor::platform
