// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/GraphModel.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <system_error>
#include <tuple>

namespace monitor::platform {

namespace {

constexpr double kUsualRate = 48000.0;

std::optional<GlobalID> globalProperty(const Properties& properties, std::string_view key) {
  const auto number = propertyNumber(properties, key);
  if (!number || *number >= kNoGlobal) return std::nullopt;
  return static_cast<GlobalID>(*number);
}

void erase(std::vector<GlobalID>& ids, GlobalID id) {
  ids.erase(std::remove(ids.begin(), ids.end(), id), ids.end());
}

template <typename Map>
auto* find(Map& map, GlobalID id) {
  const auto entry = map.find(id);
  return entry == map.end() ? nullptr : &entry->second;
}

}  // namespace

std::string_view propertyText(const Properties& properties, std::string_view key) {
  const auto entry = properties.find(key);
  return entry == properties.end() ? std::string_view{} : std::string_view{entry->second};
}

std::optional<std::uint64_t> parseNumber(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || text.empty()) return std::nullopt;
  return number;
}

std::optional<std::uint64_t> propertyNumber(const Properties& properties, std::string_view key) {
  return parseNumber(propertyText(properties, key));
}

bool propertyFlag(const Properties& properties, std::string_view key) {
  const auto text = propertyText(properties, key);
  return text == "true" || text == "1";
}

void GraphModel::clear() {
  metadataPresent_ = false;
  clients_.clear();
  nodes_.clear();
  ports_.clear();
  links_.clear();
  metadata_.clear();
  settings_.clear();
}

void GraphModel::addGlobal(GlobalID id, GlobalKind kind, Properties properties, double now) {
  if (known(id)) removeGlobal(id);
  const Incarnation incarnation = ++added_;
  switch (kind) {
    case GlobalKind::Client:
      clients_.emplace(id, GraphClient{incarnation, std::move(properties), false, now});
      break;
    case GlobalKind::Node: {
      GraphNode node;
      node.incarnation = incarnation;
      node.properties = std::move(properties);
      node.seenAt = now;
      adoptPortsAndLinks(id, node);
      nodes_.emplace(id, std::move(node));
      break;
    }
    case GlobalKind::Port:
      addPort(id, incarnation, properties);
      break;
    case GlobalKind::Link:
      addLink(id, incarnation, properties);
      break;
    case GlobalKind::Other:
      break;
  }
}

bool GraphModel::known(GlobalID id) const {
  return clients_.contains(id) || nodes_.contains(id) || ports_.contains(id) || links_.contains(id);
}

// Ids are announced in their own order, so a port with a reused low id comes before its node.
void GraphModel::adoptPortsAndLinks(GlobalID id, GraphNode& node) const {
  for (const auto& [portID, port] : ports_) {
    if (port.node == id) insertPort(node, portID);
  }
  for (const auto& [linkID, link] : links_) {
    if (link.outputNode == id) node.linksOut.push_back(linkID);
  }
}

void GraphModel::insertPort(GraphNode& node, GlobalID id) const {
  const auto place =
      std::upper_bound(node.ports.begin(), node.ports.end(), id, [this](GlobalID left, GlobalID right) {
        return std::tuple{port(left)->order, left} < std::tuple{port(right)->order, right};
      });
  node.ports.insert(place, id);
}

void GraphModel::addPort(GlobalID id, Incarnation incarnation, const Properties& properties) {
  const auto node = globalProperty(properties, "node.id");
  const auto direction = propertyText(properties, "port.direction");
  if (!node || (direction != "in" && direction != "out")) return;
  GraphPort port;
  port.incarnation = incarnation;
  port.node = *node;
  port.direction = direction == "in" ? PortDirection::Input : PortDirection::Output;
  port.monitor = propertyFlag(properties, "port.monitor");
  port.name = propertyText(properties, "port.name");
  port.channel = propertyText(properties, "audio.channel");
  port.order = propertyNumber(properties, "port.id").value_or(id);
  ports_.emplace(id, std::move(port));
  if (auto* owner = find(nodes_, *node)) insertPort(*owner, id);
}

void GraphModel::addLink(GlobalID id, Incarnation incarnation, const Properties& properties) {
  const auto outputNode = globalProperty(properties, "link.output.node");
  const auto outputPort = globalProperty(properties, "link.output.port");
  const auto inputNode = globalProperty(properties, "link.input.node");
  const auto inputPort = globalProperty(properties, "link.input.port");
  if (!outputNode || !outputPort || !inputNode || !inputPort) return;
  links_.emplace(id, GraphLink{incarnation, *outputNode, *outputPort, *inputNode, *inputPort});
  if (auto* owner = find(nodes_, *outputNode)) owner->linksOut.push_back(id);
}

void GraphModel::removeGlobal(GlobalID id) {
  clients_.erase(id);
  nodes_.erase(id);
  if (const auto port = ports_.extract(id); !port.empty()) {
    if (auto* owner = find(nodes_, port.mapped().node)) erase(owner->ports, id);
  }
  if (const auto link = links_.extract(id); !link.empty()) {
    if (auto* owner = find(nodes_, link.mapped().outputNode)) erase(owner->linksOut, id);
  }
  // The server drops an object's metadata with the object and sends no event for it; ids are reused.
  if (id != 0) setMetadata(id, std::nullopt, std::nullopt);
}

void GraphModel::describeClient(GlobalID id, const Properties& properties) {
  auto* client = find(clients_, id);
  if (client == nullptr) return;
  for (const auto& [key, value] : properties) client->properties.insert_or_assign(key, value);
  client->described = true;
}

void GraphModel::describeNode(GlobalID id, const Properties& properties) {
  auto* node = find(nodes_, id);
  if (node == nullptr) return;
  for (const auto& [key, value] : properties) node->properties.insert_or_assign(key, value);
  node->described = true;
}

void GraphModel::setNodeState(GlobalID id, NodeState state) {
  if (auto* node = find(nodes_, id)) node->state = state;
}

void GraphModel::setNodeCoding(GlobalID id, StreamCoding coding) {
  if (auto* node = find(nodes_, id)) node->coding = coding;
}

void GraphModel::setMetadataPresent(bool present) {
  metadataPresent_ = present;
  ++metadataGeneration_;
  metadata_.clear();
}

void GraphModel::setMetadata(GlobalID subject, std::optional<std::string_view> key,
                             std::optional<MetadataValue> value) {
  if (!key) {
    metadata_.erase(metadata_.lower_bound(std::pair{subject, std::string{}}),
                    subject == kNoGlobal ? metadata_.end()
                                         : metadata_.lower_bound(std::pair{subject + 1, std::string{}}));
  } else if (value) {
    metadata_.insert_or_assign(std::pair{subject, std::string{*key}}, std::move(*value));
  } else {
    metadata_.erase(std::pair{subject, std::string{*key}});
  }
}

const MetadataValue* GraphModel::metadata(GlobalID subject, std::string_view key) const {
  const auto entry = metadata_.find(std::pair{subject, std::string{key}});
  return entry == metadata_.end() ? nullptr : &entry->second;
}

void GraphModel::setSetting(std::string_view key, std::optional<std::string_view> value) {
  if (value) {
    settings_.insert_or_assign(std::string{key}, std::string{*value});
  } else {
    settings_.erase(std::string{key});
  }
}

const GraphClient* GraphModel::client(GlobalID id) const {
  return find(clients_, id);
}
const GraphNode* GraphModel::node(GlobalID id) const {
  return find(nodes_, id);
}
const GraphPort* GraphModel::port(GlobalID id) const {
  return find(ports_, id);
}
const GraphLink* GraphModel::link(GlobalID id) const {
  return find(links_, id);
}

std::optional<GlobalID> GraphModel::nodeNamed(std::string_view name) const {
  if (name.empty()) return std::nullopt;
  for (const auto& [id, node] : nodes_) {
    if (propertyText(node.properties, "node.name") == name) return id;
  }
  return std::nullopt;
}

std::optional<GlobalID> GraphModel::nodeWithSerial(std::uint64_t serial) const {
  for (const auto& [id, node] : nodes_) {
    if (propertyNumber(node.properties, "object.serial") == serial) return id;
  }
  return std::nullopt;
}

std::vector<GlobalID> GraphModel::portsOf(GlobalID id, PortDirection direction) const {
  std::vector<GlobalID> result;
  const auto* owner = node(id);
  if (owner == nullptr) return result;
  for (const GlobalID candidate : owner->ports) {
    const auto* port = this->port(candidate);
    if (port != nullptr && port->direction == direction && !port->monitor) result.push_back(candidate);
  }
  return result;
}

std::string GraphModel::defaultSinkName() const {
  const auto* value = metadata(0, "default.audio.sink");
  return value == nullptr ? std::string{} : defaultDeviceName(value->text);
}

std::optional<GlobalID> GraphModel::defaultSink() const {
  const std::string name = defaultSinkName();
  if (name.empty()) return std::nullopt;
  for (const auto& [id, node] : nodes_) {
    if (isSink(node) && propertyText(node.properties, "node.name") == name) return id;
  }
  return std::nullopt;
}

double GraphModel::rate() const {
  for (const std::string_view key : {"clock.force-rate", "clock.rate"}) {
    const auto number = propertyNumber(settings_, key);
    if (number && *number > 0) return static_cast<double>(*number);
  }
  return kUsualRate;
}

bool isSink(const GraphNode& node) {
  const auto mediaClass = propertyText(node.properties, "media.class");
  return mediaClass == "Audio/Sink" || mediaClass.starts_with("Audio/Sink/") || mediaClass == "Audio/Duplex";
}

bool isPlaybackStream(const GraphNode& node) {
  return propertyText(node.properties, "media.class") == "Stream/Output/Audio";
}

std::string defaultDeviceName(std::string_view json) {
  const auto value = nlohmann::json::parse(json, nullptr, false);
  if (!value.is_object()) return {};
  const auto name = value.find("name");
  return name != value.end() && name->is_string() ? name->get<std::string>() : std::string{};
}

}  // namespace monitor::platform
