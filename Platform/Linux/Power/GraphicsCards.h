// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Linux/Host/HostFiles.h"
#include "Platform/Linux/Power/DrmClients.h"

namespace monitor::platform {

// What one look at a graphics card shows.
struct GraphicsCard {
  std::string device;                 // bus address; empty for a card that is on none
  bool asleep = false;                // powered down; nothing else is read then, for a look would wake it
  std::optional<double> busyPercent;  // the driver's own figure of the moment, 0 to 100
  std::map<std::string, std::uint64_t> idleMilliseconds;  // time its parts spent powered down, by part

  friend bool operator==(const GraphicsCard&, const GraphicsCard&) = default;
};

using GraphicsCards = std::map<std::string, GraphicsCard>;  // by name: "card0"

[[nodiscard]] GraphicsCards readGraphicsCards(const HostFiles& files);

// All looks of one interval, the first and the last included; and the clients at both ends.
struct GraphicsInterval {
  std::vector<GraphicsCards> looks;
  DrmClients before;
  DrmClients after;
  double seconds = 0.0;
};

// The busy share, 0 to 1, of the busiest card. A card's share is, in this order of preference: the mean of
// the driver's own figures; that of its busiest engine, as its clients' files say; what is not spent powered
// down. A card that slept all the time was not busy. Nothing when no card tells.
[[nodiscard]] std::optional<double> graphicsBusyShare(const GraphicsInterval& interval);

}  // namespace monitor::platform
