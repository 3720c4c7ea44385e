// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Tools/AudioLab/ChildProcess.h"
#include "Tools/AudioLab/StackOptions.h"

struct pw_core;
struct pw_thread_loop;

namespace monitor::lab {

// One object of the audio server's registry.
struct GraphObject {
  std::uint32_t id = 0;
  std::string type;                               // "Node", "Port", "Link", "Client", "Metadata", …
  std::map<std::string, std::string> properties;  // with those that nodes and clients tell later
  std::string state;                              // of a node: "suspended", "idle", "running", …

  [[nodiscard]] std::string property(std::string_view key) const;  // empty when absent
  [[nodiscard]] std::uint32_t number(std::string_view key) const;  // UINT32_MAX when absent
};

// What the graph looked like at one moment.
struct GraphView {
  std::map<std::uint32_t, GraphObject> objects;
  std::map<std::pair<std::uint32_t, std::string>, std::string>
      metadata;  // of the "default" metadata: subject, key

  [[nodiscard]] const GraphObject* nodeNamed(std::string_view name) const;
  [[nodiscard]] std::vector<const GraphObject*> ofType(std::string_view type) const;
  [[nodiscard]] std::vector<const GraphObject*> nodesOfClass(std::string_view mediaClass) const;
  [[nodiscard]] std::vector<const GraphObject*> portsOf(std::uint32_t node) const;
  // Links from one node to another.
  [[nodiscard]] std::size_t linkCount(std::uint32_t outputNode, std::uint32_t inputNode) const;
  [[nodiscard]] std::string metadataValue(std::uint32_t subject,
                                          std::string_view key) const;  // empty when absent
  [[nodiscard]] std::string defaultSink() const;                        // node name
};

// A client of an audio server that mirrors its registry, waits for conditions and changes metadata. Any
// thread may call; conditions run on the caller's thread.
class Graph {
 public:
  // `remote` is the path of the server's socket. LabError when it does not accept within `deadline`.
  explicit Graph(const std::string& remote, Milliseconds deadline = Milliseconds(5000));
  ~Graph();
  Graph(const Graph&) = delete;
  Graph& operator=(const Graph&) = delete;

  [[nodiscard]] GraphView view() const;
  // True as soon as `condition` holds; false at the deadline, or once the server has gone and it does not
  // hold. `condition` is asked after every change, with the loop locked: it must not call the Graph.
  bool waitUntil(const std::function<bool(const GraphView&)>& condition,
                 Milliseconds deadline = Milliseconds(5000));
  // Returns once the server has answered everything that was asked before. False when it has gone.
  bool roundTrip(Milliseconds deadline = Milliseconds(5000));
  [[nodiscard]] bool connected() const;

  // `value` absent deletes the key. The type is "Spa:String", "Spa:Id" or "Spa:String:JSON". Returns after
  // the server has taken it. LabError when there is no "default" metadata (the session manager owns it).
  void setMetadata(std::uint32_t subject, const std::string& key, const std::string& type,
                   const std::optional<std::string>& value);
  // What the user's volume control does; returns when the session manager has followed.
  void setDefaultSink(const std::string& name);
  // A sink that lives until this Graph ends or removeSink() is called. Returns when its ports are there.
  void addSink(const SinkOptions& sink);
  void removeSink(const std::string& name);

  // For building more on the same connection: hold Lock while calling the library.
  [[nodiscard]] pw_core* core() const;
  [[nodiscard]] pw_thread_loop* loop() const;
  class Lock {
   public:
    explicit Lock(const Graph& graph);
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

   private:
    pw_thread_loop* loop_;
  };

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace monitor::lab
