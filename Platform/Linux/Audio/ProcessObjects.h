// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/Ports/AudioHardware.h"
#include "Platform/Linux/Audio/GraphModel.h"

namespace monitor::platform {

// Hands out object ids; never the same one twice, and never 0 or that of the system object.
class ObjectIDs {
 public:
  [[nodiscard]] AudioObjectID next() { return ++last_; }

 private:
  AudioObjectID last_ = audio::kSystemObject;
};

// One process that plays or has played.
struct ProcessObject {
  AudioObjectID id = 0;
  std::int32_t pid = 0;
  bool running = false;  // one of its playback streams runs

  friend bool operator==(const ProcessObject&, const ProcessObject&) = default;
};

// The process objects: one for each process that has had a playback stream since its client connected to the
// server. It stays until the last such client disconnects or the process ends. One thread.
class ProcessObjects {
 public:
  // Finds the process of a client; asked once for each client, when its first playback stream appears.
  using Resolver = std::function<std::optional<std::int32_t>(const GraphClient&)>;
  // Told of a playing client whose process cannot be found, once for each client.
  using Unresolved = std::function<void(const GraphClient&)>;

  ProcessObjects(ObjectIDs& ids, Resolver resolver, Unresolved unresolved);

  // Brings the objects up to date with the graph. Whether any object came, went or changed.
  bool update(const GraphModel& graph);
  // The process ended: its objects go, and its clients' remaining streams belong to nobody. Whether it had
  // one.
  bool processEnded(std::int32_t pid);
  void clear();

  // In the order of their ids.
  [[nodiscard]] const std::vector<ProcessObject>& objects() const { return objects_; }
  [[nodiscard]] const ProcessObject* object(AudioObjectID id) const;
  [[nodiscard]] const ProcessObject* objectOfPid(std::int32_t pid) const;
  // The object that a playback stream belongs to; nothing for a stream of an unknown process.
  [[nodiscard]] const ProcessObject* objectOfStream(const GraphModel& graph, const GraphNode& stream) const;

 private:
  struct Client {
    std::optional<std::int32_t> pid;
    bool resolved = false;
  };

  void dropGoneClients(const GraphModel& graph);
  void resolveClients(const GraphModel& graph);
  [[nodiscard]] std::optional<std::int32_t> pidOfStream(const GraphModel& graph,
                                                        const GraphNode& stream) const;
  [[nodiscard]] std::vector<ProcessObject> currentObjects(const GraphModel& graph);

  ObjectIDs& ids_;
  Resolver resolver_;
  Unresolved unresolved_;
  std::map<Incarnation, Client> clients_;  // those that have had a playback stream
  std::vector<ProcessObject> objects_;
};

}  // namespace monitor::platform
