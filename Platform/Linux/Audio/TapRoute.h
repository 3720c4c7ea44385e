// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "MonitorCore/Ports/AudioHardware.h"
#include "Platform/Linux/Audio/AudioStatus.h"
#include "Platform/Linux/Audio/GraphModel.h"
#include "Platform/Linux/Audio/LinkSet.h"
#include "Platform/Linux/Audio/ParkingNode.h"
#include "Platform/Linux/Audio/PipeWireConnection.h"
#include "Platform/Linux/Audio/RouteFilter.h"
#include "Platform/Linux/Audio/StreamCapture.h"
#include "Platform/Linux/Audio/TakeoverRegistry.h"

namespace monitor::platform {

// One route in the audio server: the filter and the parking node of a process tap, the links to the output of
// an aggregate device, and the capture of the program's streams while an I/O procedure runs. Loop thread
// only.
class TapRoute final : private CaptureActions {
 public:
  struct Setup {
    std::string name;         // part of the node names; unique
    std::string parkingName;  // never used before
    std::string description;
    GlobalID device = kNoGlobal;
    Incarnation deviceIncarnation = 0;
    std::vector<std::string> channels;
    std::size_t slots = 1;
  };

  // REQUIRES: connection.core() is not null. `changed` is called, from inside events, when update() is due.
  // Throws AudioCallError.
  TapRoute(PipeWireConnection& connection, const GraphModel& graph, TakeoverRegistry& takeover, Setup setup,
           std::function<void()> changed);
  ~TapRoute() override;
  TapRoute(const TapRoute&) = delete;
  TapRoute& operator=(const TapRoute&) = delete;

  // The graph or one of our own objects changed. `streams` are the playback streams of the tapped processes,
  // one of which runs when `sounding`. `now` is on the scale of GraphNode::seenAt; nextWake() tells when to
  // come again.
  void update(const std::vector<GlobalID>& streams, bool sounding, double now);
  [[nodiscard]] std::optional<double> nextWake() const;

  // Whether the filter is there; a failure when the server refused it or the parking node. The latter takes
  // the session manager longer, and is waited for when the capture starts.
  [[nodiscard]] std::optional<AudioOutcome> tapOutcome() const;

  void connectOutput() { outputWanted_ = true; }
  void disconnectOutput();
  // Whether every output is linked to the device.
  [[nodiscard]] std::optional<AudioOutcome> outputOutcome() const;
  // Whether the streams that play are taken over, see StreamCapture::startOutcome().
  [[nodiscard]] std::optional<AudioOutcome> startOutcome() const;

  [[nodiscard]] RouteMixer& mixer() { return filter_.mixer(); }
  [[nodiscard]] StreamCapture& capture() { return capture_; }
  [[nodiscard]] GlobalID device() const { return setup_.device; }
  [[nodiscard]] const std::string& parkingName() const { return setup_.parkingName; }

 private:
  void writeTarget(GlobalID stream, const std::optional<MetadataValue>& value) override;
  bool growSlots(std::size_t count) override;
  void setGate(std::size_t slot, bool open) override;
  [[nodiscard]] bool parkingReady() const override { return parking_.announced(graph_); }
  [[nodiscard]] std::optional<GlobalID> slotPort(std::size_t slot, std::size_t channel) const override;
  [[nodiscard]] LinkState linkState(GlobalID outputPort, GlobalID inputPort) const override;

  void fail(const std::string& what, const std::string& why);
  void considerKeepingAwake(bool sounding, double now);
  [[nodiscard]] bool deviceIsThere() const;
  [[nodiscard]] std::vector<LinkSet::LinkPair> wantedOutputLinks() const;

  PipeWireConnection& connection_;
  const GraphModel& graph_;
  Setup setup_;
  std::function<void()> changed_;
  std::optional<AudioOutcome> failure_;
  // Before the filter: it is what the session manager takes longest for.
  ParkingNode parking_;
  RouteFilter filter_;
  LinkSet outputLinks_;
  LinkSet inputLinks_;
  bool outputWanted_ = false;
  bool keepsAwake_ = false;               // the device, whether or not a stream goes through here
  std::optional<double> elsewhereSince_;  // when the program began to play, but not through here
  std::optional<double> awakeDue_;        // when that is long enough ago
  StreamCapture capture_;
};

// The channel of each playback port of a device, in the ports' order; empty names where a port has no
// position.
[[nodiscard]] std::vector<std::string> channelsOf(const GraphModel& graph, GlobalID device);

}  // namespace monitor::platform
