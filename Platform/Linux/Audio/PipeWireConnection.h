// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Linux/Audio/GraphModel.h"
#include "Platform/Linux/Audio/LoopThread.h"

struct pw_context;
struct pw_core;

namespace monitor::platform {

// The connection to the audio server: keeps a GraphModel up to date from the registry, and connects again,
// for as long as it lives, whenever the server has gone. Loop thread only.
class PipeWireConnection {
 public:
  enum class State : std::uint8_t {
    Connecting,  // the first answer is not there yet
    Ready,       // the graph is complete and the default output known, if there is one
    Down,        // there is no server, or it has not answered yet since it came back
  };

  class Observer {
   public:
    virtual ~Observer() = default;
    // The graph changed; called once for all events that arrived together.
    virtual void graphChanged() = 0;
    // Somebody, perhaps we, wrote or removed a key of the "default" metadata. Called at once, for every
    // event.
    virtual void metadataWritten(GlobalID subject, const std::string& key,
                                 const std::optional<MetadataValue>& value) = 0;
    // Every object of the connection is about to be destroyed: the observer destroys its own now.
    virtual void connectionLost() = 0;
    virtual void stateChanged() = 0;
  };

  PipeWireConnection(LoopThread& thread, GraphModel& graph, Observer& observer);
  ~PipeWireConnection();
  PipeWireConnection(const PipeWireConnection&) = delete;
  PipeWireConnection& operator=(const PipeWireConnection&) = delete;

  // Begins to connect. Once.
  void open();

  [[nodiscard]] State state() const { return state_; }
  // Null while there is no connection.
  [[nodiscard]] pw_core* core() const;
  // Writes a key of the "default" metadata; no value removes it. Without the metadata nothing happens.
  void setMetadata(GlobalID subject, const std::string& key, const std::optional<MetadataValue>& value);
  // Calls graphChanged() soon, as after an event.
  void notifySoon();

 private:
  struct Session;
  friend struct Session;

  void connect();
  void lose();
  void setState(State state);
  void answered();
  void reconsiderReady();

  LoopThread& thread_;
  GraphModel& graph_;
  Observer& observer_;
  State state_ = State::Connecting;
  pw_context* context_ = nullptr;
  std::unique_ptr<Session> session_;
  LoopTimer retry_;
  LoopTimer grace_;
  double retryAfter_;
  bool synced_ = false;
  bool graceOver_ = false;
  bool notifying_ = false;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);  // for tasks posted to the loop
};

}  // namespace monitor::platform
