// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Platform/Linux/Audio/GraphModel.h"

namespace monitor::platform::test {

// Puts objects into a graph as the audio server announces them. Ids go up from 40 and are never reused unless
// a test says so; serials are ids plus 1000.
class GraphFixture {
 public:
  GraphModel graph;
  double now = 100.0;

  [[nodiscard]] static std::uint64_t serialOf(GlobalID id) { return id + 1000; }

  GlobalID addClient(const Properties& described) {
    const GlobalID id = next_++;
    graph.addGlobal(id, GlobalKind::Client, {}, now);
    graph.describeClient(id, described);
    return id;
  }
  GlobalID addNativeClient(std::int32_t pid) {
    return addClient({{"pipewire.sec.pid", std::to_string(pid)}});
  }
  GlobalID addPulseClient(std::int32_t claimed) {
    return addClient({{"client.api", "pipewire-pulse"},
                      {"pipewire.sec.pid", "7"},
                      {"application.process.id", std::to_string(claimed)}});
  }

  GlobalID addNode(Properties properties) {
    const GlobalID id = next_++;
    properties.insert_or_assign("object.serial", std::to_string(serialOf(id)));
    graph.addGlobal(id, GlobalKind::Node, std::move(properties), now);
    return id;
  }
  GlobalID addPort(GlobalID node, std::string_view direction, std::string_view channel, std::uint64_t order,
                   bool monitor = false) {
    const GlobalID id = next_++;
    graph.addGlobal(id, GlobalKind::Port,
                    {{"node.id", std::to_string(node)},
                     {"port.direction", std::string{direction}},
                     {"port.name", std::string{direction} + "_" + std::string{channel}},
                     {"audio.channel", std::string{channel}},
                     {"port.id", std::to_string(order)},
                     {"port.monitor", monitor ? "true" : "false"}},
                    now);
    return id;
  }
  // A sink with stereo playback and monitor ports.
  GlobalID addSink(const std::string& name) {
    const GlobalID id = addNode({{"media.class", "Audio/Sink"}, {"node.name", name}});
    addStereoPorts(id, "in");
    addPort(id, "out", "FL", 0, true);
    addPort(id, "out", "FR", 1, true);
    return id;
  }
  void addStereoPorts(GlobalID node, std::string_view direction) {
    addPort(node, direction, "FL", 0);
    addPort(node, direction, "FR", 1);
  }
  // A playback stream without ports, as it is before the session manager has seen it.
  GlobalID addStream(GlobalID client, Properties properties = {}) {
    properties.insert_or_assign("media.class", "Stream/Output/Audio");
    properties.insert_or_assign("client.id", std::to_string(client));
    properties.try_emplace("node.name", "player");
    return addNode(std::move(properties));
  }
  GlobalID addLink(GlobalID outputPort, GlobalID inputPort) {
    const GlobalID id = next_++;
    const auto nodeOf = [this](GlobalID port) { return std::to_string(graph.port(port)->node); };
    graph.addGlobal(id, GlobalKind::Link,
                    {{"link.output.node", nodeOf(outputPort)},
                     {"link.output.port", std::to_string(outputPort)},
                     {"link.input.node", nodeOf(inputPort)},
                     {"link.input.port", std::to_string(inputPort)}},
                    now);
    return id;
  }
  void setDefaultSink(const std::string& name) {
    graph.setMetadataPresent(true);
    graph.setMetadata(0, "default.audio.sink",
                      MetadataValue{"Spa:String:JSON", "{\"name\":\"" + name + "\"}"});
  }

 private:
  GlobalID next_ = 40;
};

}  // namespace monitor::platform::test
