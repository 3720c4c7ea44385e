// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace monitor::platform {

// The key-value pairs that an object of the audio server carries.
using Properties = std::map<std::string, std::string, std::less<>>;

// The value of `key`, empty when absent. Valid as long as `properties` is unchanged.
[[nodiscard]] std::string_view propertyText(const Properties& properties, std::string_view key);
// The value of `key` as a whole decimal number; nothing when absent or anything else.
[[nodiscard]] std::optional<std::uint64_t> propertyNumber(const Properties& properties, std::string_view key);
[[nodiscard]] bool propertyFlag(const Properties& properties, std::string_view key);
[[nodiscard]] std::optional<std::uint64_t> parseNumber(std::string_view text);

// Ids of the server's globals. They are reused, unlike the incarnations below.
using GlobalID = std::uint32_t;
inline constexpr GlobalID kNoGlobal = 0xFFFFFFFF;
// Counts every global that was ever added: tells a new object from an old one with the same id.
using Incarnation = std::uint64_t;

enum class GlobalKind : std::uint8_t { Client, Node, Port, Link, Other };
enum class NodeState : std::uint8_t { Unknown, Error, Creating, Suspended, Idle, Running };
enum class PortDirection : std::uint8_t { Input, Output };
// What a stream offers to play, as far as the server has said.
enum class StreamCoding : std::uint8_t { Unknown, Pcm, Encoded };

struct GraphClient {
  Incarnation incarnation = 0;
  Properties properties;
  bool described = false;  // the full properties have arrived; a registry announcement carries only a few
  double seenAt = 0.0;     // monotonic seconds
};

struct GraphNode {
  Incarnation incarnation = 0;
  Properties properties;
  bool described = false;
  NodeState state = NodeState::Unknown;
  StreamCoding coding = StreamCoding::Unknown;
  double seenAt = 0.0;
  std::vector<GlobalID> ports;     // in the order of their own numbers
  std::vector<GlobalID> linksOut;  // links that start at one of its ports
};

struct GraphPort {
  Incarnation incarnation = 0;
  GlobalID node = kNoGlobal;
  PortDirection direction = PortDirection::Input;
  bool monitor = false;  // carries what the node plays rather than what it records
  std::string name;
  std::string channel;      // "FL", "MONO" …; empty when the port has no position
  std::uint64_t order = 0;  // the port's own number within its node and direction
};

struct GraphLink {
  Incarnation incarnation = 0;
  GlobalID outputNode = kNoGlobal;
  GlobalID outputPort = kNoGlobal;
  GlobalID inputNode = kNoGlobal;
  GlobalID inputPort = kNoGlobal;
};

struct MetadataValue {
  std::string type;
  std::string text;

  friend bool operator==(const MetadataValue&, const MetadataValue&) = default;
};

// The audio server's graph as its registry tells it: clients, nodes, ports, links and the "default" and
// "settings" metadata. Pure bookkeeping; events may come in any order and with any content, and what makes no
// sense is dropped. One thread.
class GraphModel {
 public:
  // Forgets everything, as when the connection is lost. Incarnations go on counting.
  void clear();

  void addGlobal(GlobalID id, GlobalKind kind, Properties properties, double now);
  void removeGlobal(GlobalID id);
  void describeClient(GlobalID id, const Properties& properties);
  void describeNode(GlobalID id, const Properties& properties);
  void setNodeState(GlobalID id, NodeState state);
  void setNodeCoding(GlobalID id, StreamCoding coding);

  // The "default" metadata object came or went. Its values go with it, without one event for each.
  void setMetadataPresent(bool present);
  [[nodiscard]] bool metadataPresent() const { return metadataPresent_; }
  // Counts the comings and goings: what was written into an earlier metadata object is lost.
  [[nodiscard]] std::uint64_t metadataGeneration() const { return metadataGeneration_; }
  // No value removes the key; no key removes every key of the subject.
  void setMetadata(GlobalID subject, std::optional<std::string_view> key, std::optional<MetadataValue> value);
  [[nodiscard]] const MetadataValue* metadata(GlobalID subject, std::string_view key) const;
  using MetadataMap = std::map<std::pair<GlobalID, std::string>, MetadataValue, std::less<>>;
  [[nodiscard]] const MetadataMap& allMetadata() const { return metadata_; }
  void setSetting(std::string_view key, std::optional<std::string_view> value);
  void clearSettings() { settings_.clear(); }

  [[nodiscard]] const GraphClient* client(GlobalID id) const;
  [[nodiscard]] const GraphNode* node(GlobalID id) const;
  [[nodiscard]] const GraphPort* port(GlobalID id) const;
  [[nodiscard]] const GraphLink* link(GlobalID id) const;
  [[nodiscard]] const std::map<GlobalID, GraphClient>& clients() const { return clients_; }
  [[nodiscard]] const std::map<GlobalID, GraphNode>& nodes() const { return nodes_; }
  [[nodiscard]] std::optional<GlobalID> nodeNamed(std::string_view name) const;
  [[nodiscard]] std::optional<GlobalID> nodeWithSerial(std::uint64_t serial) const;
  // The ports of one direction, monitors left out, in the order of their own numbers.
  [[nodiscard]] std::vector<GlobalID> portsOf(GlobalID node, PortDirection direction) const;

  // The name in "default.audio.sink"; empty when there is none.
  [[nodiscard]] std::string defaultSinkName() const;
  [[nodiscard]] std::optional<GlobalID> defaultSink() const;
  // Frames per second of the graph.
  [[nodiscard]] double rate() const;

 private:
  [[nodiscard]] bool known(GlobalID id) const;
  void adoptPortsAndLinks(GlobalID id, GraphNode& node) const;
  void insertPort(GraphNode& node, GlobalID id) const;
  void addPort(GlobalID id, Incarnation incarnation, const Properties& properties);
  void addLink(GlobalID id, Incarnation incarnation, const Properties& properties);

  Incarnation added_ = 0;
  bool metadataPresent_ = false;
  std::uint64_t metadataGeneration_ = 0;
  std::map<GlobalID, GraphClient> clients_;
  std::map<GlobalID, GraphNode> nodes_;
  std::map<GlobalID, GraphPort> ports_;
  std::map<GlobalID, GraphLink> links_;
  MetadataMap metadata_;
  std::map<std::string, std::string, std::less<>> settings_;
};

// A node that plays on a device: the target of a direct path.
[[nodiscard]] bool isSink(const GraphNode& node);
// A program's playback stream.
[[nodiscard]] bool isPlaybackStream(const GraphNode& node);
// The name inside a default-device value, a JSON object with the member "name"; empty when it is anything
// else.
[[nodiscard]] std::string defaultDeviceName(std::string_view json);

}  // namespace monitor::platform
