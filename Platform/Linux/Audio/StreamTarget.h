// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Linux/Audio/GraphModel.h"

namespace monitor::platform {

// Where a program's stream plays, and who decided it.
//
// The session manager links a stream to the node that its target names: the metadata "target.object" (a
// serial or a name), else "target.node" (an id), both written for the user; else the same keys of the
// stream's own properties, written by the program; else to the default output.

inline constexpr std::string_view kTargetObject = "target.object";
inline constexpr std::string_view kTargetNode = "target.node";

// Names of parking nodes. Every route has one of its own, never used twice: a name that came back would catch
// streams that still point at the old one.
[[nodiscard]] std::string makeParkingName(std::int32_t servicePid, std::uint64_t number);
[[nodiscard]] bool isParkingName(std::string_view name);

// The node that a value of "target.object" means; nothing for "-1" and for a node that is not there.
[[nodiscard]] std::optional<GlobalID> nodeOfTarget(const GraphModel& graph, std::string_view target);

// The node that the user or the program wants the stream on, nothing when it follows the default output.
// `userTarget` stands for the metadata "target.object".
[[nodiscard]] std::optional<GlobalID> wantedNode(const GraphModel& graph, GlobalID stream,
                                                 const std::optional<MetadataValue>& userTarget);

// The sinks that the stream is linked to now.
[[nodiscard]] std::vector<GlobalID> directSinks(const GraphModel& graph, GlobalID stream);

enum class StreamPlace : std::uint8_t {
  OnDevice,   // linked to the device and to no other
  Expected,   // not linked yet; will be linked to the device
  Elsewhere,  // linked, or about to be linked, to another one
};
[[nodiscard]] StreamPlace placeOf(const GraphModel& graph, GlobalID stream, GlobalID device,
                                  const std::optional<MetadataValue>& userTarget);

// Whether the session manager would move the stream when told to.
[[nodiscard]] bool isMovable(const GraphNode& stream);

// What a stream is called in messages.
[[nodiscard]] std::string streamTitle(const GraphNode& stream);

}  // namespace monitor::platform
