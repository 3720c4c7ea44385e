// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/StreamTarget.h"

#include <fmt/format.h>

#include <algorithm>

namespace monitor::platform {

namespace {

constexpr std::string_view kParkingPrefix = "vesk-monitor.parking.";

std::optional<GlobalID> nodeWithID(const GraphModel& graph, std::string_view text) {
  const auto number = parseNumber(text);
  if (!number || *number >= kNoGlobal || graph.node(static_cast<GlobalID>(*number)) == nullptr)
    return std::nullopt;
  return static_cast<GlobalID>(*number);
}

std::optional<GlobalID> nodeWithNameOrPath(const GraphModel& graph, std::string_view text) {
  if (text.empty()) return std::nullopt;
  for (const auto& [id, node] : graph.nodes()) {
    if (propertyText(node.properties, "node.name") == text) return id;
    if (propertyText(node.properties, "object.path") == text) return id;
  }
  return std::nullopt;
}

}  // namespace

std::string makeParkingName(std::int32_t servicePid, std::uint64_t number) {
  return fmt::format("{}{}.{}", kParkingPrefix, servicePid, number);
}

bool isParkingName(std::string_view name) {
  return name.starts_with(kParkingPrefix);
}

std::optional<GlobalID> nodeOfTarget(const GraphModel& graph, std::string_view target) {
  if (const auto serial = parseNumber(target)) {
    if (const auto node = graph.nodeWithSerial(*serial)) return node;
  }
  return nodeWithNameOrPath(graph, target);
}

std::optional<GlobalID> wantedNode(const GraphModel& graph, GlobalID stream,
                                   const std::optional<MetadataValue>& userTarget) {
  if (userTarget) return nodeOfTarget(graph, userTarget->text);
  if (const auto* target = graph.metadata(stream, kTargetNode)) return nodeWithID(graph, target->text);
  const auto* node = graph.node(stream);
  if (node == nullptr) return std::nullopt;
  if (const auto target = propertyText(node->properties, kTargetObject); !target.empty()) {
    return nodeOfTarget(graph, target);
  }
  const auto target = propertyText(node->properties, "node.target");
  const auto found = nodeWithID(graph, target);
  return found ? found : nodeWithNameOrPath(graph, target);
}

std::vector<GlobalID> directSinks(const GraphModel& graph, GlobalID stream) {
  std::vector<GlobalID> sinks;
  const auto* node = graph.node(stream);
  if (node == nullptr) return sinks;
  for (const GlobalID each : node->linksOut) {
    const auto* link = graph.link(each);
    const auto* input = link == nullptr ? nullptr : graph.node(link->inputNode);
    if (input == nullptr || !isSink(*input)) continue;
    if (std::find(sinks.begin(), sinks.end(), link->inputNode) == sinks.end())
      sinks.push_back(link->inputNode);
  }
  return sinks;
}

StreamPlace placeOf(const GraphModel& graph, GlobalID stream, GlobalID device,
                    const std::optional<MetadataValue>& userTarget) {
  const auto sinks = directSinks(graph, stream);
  if (!sinks.empty()) {
    const bool onlyDevice = sinks.size() == 1 && sinks.front() == device;
    return onlyDevice ? StreamPlace::OnDevice : StreamPlace::Elsewhere;
  }
  const auto wanted = wantedNode(graph, stream, userTarget);
  const auto expected = wanted ? wanted : graph.defaultSink();
  return expected == device ? StreamPlace::Expected : StreamPlace::Elsewhere;
}

bool isMovable(const GraphNode& stream) {
  return !propertyFlag(stream.properties, "node.dont-reconnect") &&
         !propertyFlag(stream.properties, "node.dont-move");
}

std::string streamTitle(const GraphNode& stream) {
  for (const std::string_view key : {"media.name", "node.name", "node.description"}) {
    if (const auto text = propertyText(stream.properties, key); !text.empty()) return std::string{text};
  }
  return "unnamed";
}

}  // namespace monitor::platform
