// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Linux/Audio/AudioStatus.h"
#include "Platform/Linux/Audio/GraphModel.h"
#include "Platform/Linux/Audio/TakeoverRegistry.h"

namespace monitor::platform {

enum class LinkState : std::uint8_t { Missing, Pending, Ready, Failed };

// What a StreamCapture does to the audio server. Nothing takes effect before the next event from the server.
class CaptureActions {
 public:
  virtual ~CaptureActions() = default;
  // Writes the stream's "target.object"; no value removes it.
  virtual void writeTarget(GlobalID stream, const std::optional<MetadataValue>& value) = 0;
  // Makes sure that there are at least that many slots. False when that is more than a route can have.
  virtual bool growSlots(std::size_t count) = 0;
  virtual void setGate(std::size_t slot, bool open) = 0;
  // Whether streams can be sent to the parking node.
  [[nodiscard]] virtual bool parkingReady() const = 0;
  // The slot's input port for a channel; nothing while the server has not announced it.
  [[nodiscard]] virtual std::optional<GlobalID> slotPort(std::size_t slot, std::size_t channel) const = 0;
  [[nodiscard]] virtual LinkState linkState(GlobalID outputPort, GlobalID inputPort) const = 0;
};

// Whether a program with these streams can be taken over as a whole: each of its streams on the device can,
// and unless there is no stream at all, one is on the device.
[[nodiscard]] AudioOutcome checkCapture(const GraphModel& graph, const TakeoverRegistry& takeover,
                                        const std::vector<GlobalID>& streams, GlobalID device,
                                        std::string_view ownParkingName);

// Takes the streams of some processes off their device and into a route, and gives them back: one state
// machine for each stream. It is told the graph after every change and answers with the links it wants and
// with actions.
//
//   Free ──► Linking ──► Parked ──► Releasing ──► Free
//
// A stream that plays already is first linked to its slot behind a closed gate. Then its target is set to the
// route's parking node, which makes the session manager remove the direct path, and the gate opens when the
// last direct link has gone: at no moment are both paths heard. A stream that is not linked yet is parked at
// once.
//
// On the way back the gate is closed before the session manager is asked for the direct path, and not when
// that shows up: the news of it takes its time to get here, during which the program would be heard twice.
// What was let through in the cycle of the closing left the program before anybody asked for the direct path,
// so that it cannot have taken that path as well. The price is a silence of a cycle or two.
class StreamCapture {
 public:
  using LinkPair = std::pair<GlobalID, GlobalID>;  // output port, input port

  // `channels` are the device's, in the order of the slots' ports.
  StreamCapture(TakeoverRegistry& takeover, CaptureActions& actions, std::vector<std::string> channels,
                std::string parkingName);

  // From the next update() on, streams that play are linked behind closed gates, so that start() finds that
  // done.
  void prepare() { preparing_ = true; }
  // From the next update() on, streams are taken over. Then give up all of them, waiting for their direct
  // paths.
  void start();
  void release(const GraphModel& graph);
  // Closes every gate and forgets the streams, whatever the session manager has done so far.
  void abandon(const GraphModel& graph);
  [[nodiscard]] bool running() const { return running_; }

  // The graph changed, or nextWake() has come. `streams` are the playback streams of the route's processes;
  // `now` is on the scale of GraphNode::seenAt.
  void update(const GraphModel& graph, const std::vector<GlobalID>& streams, GlobalID device, double now);
  // Somebody, perhaps we, wrote the stream's target; told at once, before update() and after the
  // TakeoverRegistry.
  void targetWritten(const GraphModel& graph, GlobalID stream, const std::optional<MetadataValue>& value,
                     double now);
  // The session manager's metadata came or went: what was written into the old one is lost.
  void metadataReplaced();

  // The links that should exist, after update().
  [[nodiscard]] const std::vector<LinkPair>& wantedLinks() const { return wantedLinks_; }
  [[nodiscard]] std::optional<double> nextWake() const { return nextWake_; }

  // After start(): nothing while streams are still on their way, then success, or why one of them cannot be
  // taken.
  [[nodiscard]] std::optional<AudioOutcome> startOutcome() const;
  // After release(): whether all streams have their direct paths back.
  [[nodiscard]] bool released() const;
  [[nodiscard]] std::size_t parkedCount() const;
  // Whether a stream that is linked to a slot plays at the moment.
  [[nodiscard]] bool sounds(const GraphModel& graph) const;

 private:
  enum class Phase : std::uint8_t { Free, Linking, Parked, Releasing };
  // A target that we wrote and that the server has not told back yet. Somebody else's write may have come
  // before or after it: what is told meanwhile came before.
  struct Written {
    std::optional<MetadataValue> value;
    bool givesBack = false;
    std::optional<std::optional<MetadataValue>> overwritten;  // the user's, lost to ours
  };
  struct Stream {
    GlobalID node = kNoGlobal;
    Phase phase = Phase::Free;
    std::optional<std::size_t> slot;
    bool open = false;
    bool givenUp = false;  // a link failed: the stream is left alone from then on
    std::optional<Written> written;
    double closedUntil = 0.0;
    std::optional<GlobalID> wantedWhenParked;
  };
  struct Now {
    const GraphModel& graph;
    GlobalID device;
    double time;
  };

  void adopt(const GraphModel& graph, const std::vector<GlobalID>& streams);
  void updateAwaited(const Now& now);
  void step(Stream& stream, const Now& now);
  void stepFree(Stream& stream, const Now& now);
  void stepLinking(Stream& stream, const Now& now);
  void stepParked(Stream& stream, const Now& now);
  void stepReleasing(Stream& stream, const Now& now);
  [[nodiscard]] bool capturable(const Stream& stream, const Now& now) const;
  [[nodiscard]] bool waitsForPulse(const Stream& stream, const Now& now);
  [[nodiscard]] bool wantedElsewhere(const Stream& stream, const Now& now) const;
  [[nodiscard]] bool mayPark() const;
  bool takeSlot(Stream& stream);
  void park(Stream& stream, const Now& now);
  void letGo(Stream& stream, const GraphModel& graph);
  void writeParking(Stream& stream);
  void writeBack(Stream& stream, const std::optional<MetadataValue>& value);
  void writeTarget(Stream& stream, Written written);
  void settleWritten(Stream& stream, const std::optional<MetadataValue>& value);
  [[nodiscard]] bool pointsHere(const Stream& stream, const GraphModel& graph) const;
  void setOpen(Stream& stream, bool open);
  void setFree(Stream& stream);
  void fail(AudioOutcome outcome);
  void wakeAt(double time);

  void collectLinks(const GraphModel& graph);
  [[nodiscard]] std::vector<LinkPair> linksOf(const Stream& stream, const GraphModel& graph) const;
  [[nodiscard]] LinkState linkStateOf(const Stream& stream, const GraphModel& graph) const;

  TakeoverRegistry& takeover_;
  CaptureActions& actions_;
  std::vector<std::string> channels_;
  std::string parkingName_;
  bool preparing_ = false;
  bool running_ = false;
  std::map<Incarnation, Stream> streams_;
  std::optional<std::set<Incarnation>> awaited_;  // streams that were there when the capture started
  std::optional<AudioOutcome> failure_;
  std::vector<LinkPair> wantedLinks_;
  std::optional<double> nextWake_;
};

}  // namespace monitor::platform
