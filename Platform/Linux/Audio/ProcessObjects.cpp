// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/ProcessObjects.h"

#include <algorithm>
#include <set>
#include <utility>

namespace monitor::platform {

namespace {

const GraphClient* clientOf(const GraphModel& graph, const GraphNode& node) {
  const auto id = propertyNumber(node.properties, "client.id");
  return id && *id < kNoGlobal ? graph.client(static_cast<GlobalID>(*id)) : nullptr;
}

}  // namespace

ProcessObjects::ProcessObjects(ObjectIDs& ids, Resolver resolver, Unresolved unresolved)
    : ids_(ids), resolver_(std::move(resolver)), unresolved_(std::move(unresolved)) {}

bool ProcessObjects::update(const GraphModel& graph) {
  dropGoneClients(graph);
  resolveClients(graph);
  auto current = currentObjects(graph);
  const bool changed = current != objects_;
  objects_ = std::move(current);
  return changed;
}

void ProcessObjects::dropGoneClients(const GraphModel& graph) {
  std::set<Incarnation> present;
  for (const auto& [id, client] : graph.clients()) present.insert(client.incarnation);
  std::erase_if(clients_, [&](const auto& entry) { return !present.contains(entry.first); });
}

void ProcessObjects::resolveClients(const GraphModel& graph) {
  for (const auto& [id, node] : graph.nodes()) {
    if (!isPlaybackStream(node)) continue;
    const GraphClient* client = clientOf(graph, node);
    // Before its description has arrived nothing tells a PulseAudio client from a native one.
    if (client == nullptr || !client->described) continue;
    Client& known = clients_[client->incarnation];
    if (known.resolved) continue;
    known.resolved = true;
    known.pid = resolver_(*client);
    if (!known.pid) unresolved_(*client);
  }
}

std::optional<std::int32_t> ProcessObjects::pidOfStream(const GraphModel& graph,
                                                        const GraphNode& stream) const {
  if (!isPlaybackStream(stream)) return std::nullopt;
  const GraphClient* client = clientOf(graph, stream);
  if (client == nullptr) return std::nullopt;
  const auto known = clients_.find(client->incarnation);
  return known == clients_.end() ? std::nullopt : known->second.pid;
}

std::vector<ProcessObject> ProcessObjects::currentObjects(const GraphModel& graph) {
  std::map<std::int32_t, bool> running;
  for (const auto& [incarnation, client] : clients_) {
    if (client.pid) running.try_emplace(*client.pid, false);
  }
  for (const auto& [id, node] : graph.nodes()) {
    if (node.state != NodeState::Running) continue;
    if (const auto pid = pidOfStream(graph, node)) running[*pid] = true;
  }
  std::vector<ProcessObject> current;
  for (const auto& object : objects_) {
    if (const auto entry = running.extract(object.pid); !entry.empty()) {
      current.push_back({object.id, object.pid, entry.mapped()});
    }
  }
  for (const auto& [pid, runs] : running) current.push_back({ids_.next(), pid, runs});
  return current;
}

bool ProcessObjects::processEnded(std::int32_t pid) {
  for (auto& [incarnation, client] : clients_) {
    if (client.pid == pid) client.pid.reset();
  }
  return std::erase_if(objects_, [pid](const ProcessObject& object) { return object.pid == pid; }) > 0;
}

void ProcessObjects::clear() {
  clients_.clear();
  objects_.clear();
}

const ProcessObject* ProcessObjects::object(AudioObjectID id) const {
  const auto found = std::find_if(objects_.begin(), objects_.end(),
                                  [id](const ProcessObject& object) { return object.id == id; });
  return found == objects_.end() ? nullptr : &*found;
}

const ProcessObject* ProcessObjects::objectOfPid(std::int32_t pid) const {
  const auto found = std::find_if(objects_.begin(), objects_.end(),
                                  [pid](const ProcessObject& object) { return object.pid == pid; });
  return found == objects_.end() ? nullptr : &*found;
}

const ProcessObject* ProcessObjects::objectOfStream(const GraphModel& graph, const GraphNode& stream) const {
  const auto pid = pidOfStream(graph, stream);
  return pid ? objectOfPid(*pid) : nullptr;
}

}  // namespace monitor::platform
