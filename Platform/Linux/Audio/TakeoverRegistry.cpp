// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/TakeoverRegistry.h"

#include <algorithm>
#include <set>

#include "Platform/Linux/Audio/StreamTarget.h"

namespace monitor::platform {

bool TakeoverRegistry::claim(AudioObjectID tap, const std::vector<AudioObjectID>& processes) {
  const bool held = std::any_of(processes.begin(), processes.end(),
                                [this](AudioObjectID process) { return holders_.contains(process); });
  if (held) return false;
  for (const AudioObjectID process : processes) holders_.emplace(process, tap);
  return true;
}

void TakeoverRegistry::release(AudioObjectID tap) {
  std::erase_if(holders_, [tap](const auto& entry) { return entry.second == tap; });
}

void TakeoverRegistry::park(const GraphModel& graph, GlobalID stream) {
  const auto* node = graph.node(stream);
  if (node != nullptr) kept_.insert_or_assign(node->incarnation, Kept{userTarget(graph, stream)});
}

void TakeoverRegistry::giveBack(const GraphModel& graph, GlobalID stream) {
  const auto* node = graph.node(stream);
  if (node == nullptr) return;
  const auto kept = kept_.find(node->incarnation);
  if (kept != kept_.end()) kept->second.givenBack = true;
}

void TakeoverRegistry::targetWritten(const GraphModel& graph, GlobalID stream,
                                     const std::optional<MetadataValue>& value) {
  const auto* node = graph.node(stream);
  if (node == nullptr || (value && isParkingName(value->text))) return;
  const auto kept = kept_.find(node->incarnation);
  if (kept == kept_.end()) return;
  if (kept->second.givenBack) {
    kept_.erase(kept);
  } else {
    kept->second.wish = value;
  }
}

std::optional<MetadataValue> TakeoverRegistry::userTarget(const GraphModel& graph, GlobalID stream) const {
  const auto* current = graph.metadata(stream, kTargetObject);
  if (current != nullptr && !isParkingName(current->text)) return *current;
  const auto* node = graph.node(stream);
  const auto kept = node == nullptr ? kept_.end() : kept_.find(node->incarnation);
  return kept == kept_.end() ? std::nullopt : kept->second.wish;
}

std::optional<MetadataValue> TakeoverRegistry::targetToRestore(const GraphModel& graph,
                                                               GlobalID stream) const {
  if (const auto wish = userTarget(graph, stream)) return wish;
  const auto* stored = graph.metadata(stream, kTargetNode);
  const auto id = stored == nullptr ? std::nullopt : parseNumber(stored->text);
  const auto* target = id && *id < kNoGlobal ? graph.node(static_cast<GlobalID>(*id)) : nullptr;
  if (target == nullptr) return std::nullopt;
  const auto serial = propertyText(target->properties, "object.serial");
  if (serial.empty()) return std::nullopt;
  return MetadataValue{"Spa:Id", std::string{serial}};
}

bool TakeoverRegistry::isParkedByOthers(const GraphModel& graph, GlobalID stream,
                                        std::string_view ownParkingName) {
  const auto* current = graph.metadata(stream, kTargetObject);
  return current != nullptr && isParkingName(current->text) && current->text != ownParkingName &&
         graph.nodeNamed(current->text).has_value();
}

std::vector<GlobalID> TakeoverRegistry::staleStreams(const GraphModel& graph) {
  std::vector<GlobalID> stale;
  for (const auto& [key, value] : graph.allMetadata()) {
    if (key.second == kTargetObject && isParkingName(value.text) && !graph.nodeNamed(value.text)) {
      stale.push_back(key.first);
    }
  }
  return stale;
}

void TakeoverRegistry::prune(const GraphModel& graph) {
  if (kept_.empty()) return;
  std::set<Incarnation> present;
  for (const auto& [id, node] : graph.nodes()) present.insert(node.incarnation);
  std::erase_if(kept_, [&](const auto& entry) { return !present.contains(entry.first); });
}

void TakeoverRegistry::clear() {
  holders_.clear();
  kept_.clear();
}

}  // namespace monitor::platform
