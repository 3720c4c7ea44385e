// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Linux/Audio/StreamCapture.h"
#include "Platform/Linux/Audio/StreamTarget.h"
#include "Tests/Platform/Audio/GraphFixture.h"

namespace monitor::platform::test {

// An audio server with a session manager, event by event: two sinks "a" (the default) and "b", one route on
// "a", and programs' streams. What anybody does becomes visible only when step() takes the next event; after
// each event the capture is told, as the adapter does.
class FakeSession final : public CaptureActions {
 public:
  static constexpr const char* kParking = "vesk-monitor.parking.1.1";

  FakeSession() {
    sinkA = fixture.addSink("a");
    sinkB = fixture.addSink("b");
    filter = fixture.addNode({{"node.name", "vesk-monitor.route.1.1"}});
    parking = fixture.addNode({{"media.class", "Audio/Input/Internal"}, {"node.name", kParking}});
    fixture.addStereoPorts(parking, "in");
    fixture.setDefaultSink("a");
    client = fixture.addNativeClient(10);
    pulseClient = fixture.addPulseClient(10);
  }

  // The programs.
  GlobalID open(bool pulse = false, Properties properties = {}) {
    const GlobalID id = fixture.addStream(pulse ? pulseClient : client, std::move(properties));
    streams.insert(id);
    if (pulse) unanswered_.insert(id);
    // Everybody hears of the stream at the same time, and the session manager takes longer to prepare it.
    tell();
    later([this] { manage(); });
    return id;
  }
  void close(GlobalID stream) {
    dropLinksOf(stream);
    for (const GlobalID port : std::vector<GlobalID>{fixture.graph.node(stream)->ports}) {
      fixture.graph.removeGlobal(port);
    }
    fixture.graph.removeGlobal(stream);
    streams.erase(stream);
    unanswered_.erase(stream);
  }
  // The user.
  void move(GlobalID stream, const std::optional<std::string>& target) {
    std::optional<MetadataValue> value;
    if (target) value = MetadataValue{"Spa:String", *target};
    writeMetadata(stream, value);
  }
  // The session manager ends and comes back: its links and metadata are gone.
  void restartSessionManager() {
    later([this] {
      for (const GlobalID stream : streams) dropManagedLinks(stream);
      fixture.graph.setMetadataPresent(false);
      managing_ = false;
    });
    later([this] {
      fixture.setDefaultSink("a");
      capture.metadataReplaced();
      managing_ = true;
      later([this] { manage(); });
    });
  }

  // The route.
  void start() {
    capture.start();
    tell();
  }
  void release() {
    capture.release(fixture.graph);
    tell();
  }
  // Takes one event. False when there is none.
  bool step() {
    if (events_.empty()) return false;
    const auto event = std::move(events_.front());
    events_.pop_front();
    event();
    tell();
    return true;
  }
  void settle() {
    tell();
    for (int steps = 0; step(); ++steps) {
      if (steps > 20'000) {
        livelocked = true;
        return;
      }
    }
  }
  void pass(double seconds) {
    fixture.now += seconds;
    tell();
  }
  void tell() {
    capture.update(fixture.graph, {streams.begin(), streams.end()}, sinkA, fixture.now);
    makeLinks();
    if (afterUpdate) afterUpdate();
  }

  [[nodiscard]] std::vector<GlobalID> sinksOf(GlobalID stream) const {
    return directSinks(fixture.graph, stream);
  }
  [[nodiscard]] std::optional<std::string> target(GlobalID stream) const {
    const auto* value = fixture.graph.metadata(stream, "target.object");
    return value == nullptr ? std::nullopt : std::optional{value->text};
  }
  // Whether the program is heard through the route: linked to a slot whose gate is open.
  [[nodiscard]] bool routed(GlobalID stream) const {
    const auto& ports = fixture.graph.portsOf(stream, PortDirection::Output);
    std::size_t linked = 0;
    for (const auto& [pair, state] : links_) {
      const bool ours = std::find(ports.begin(), ports.end(), pair.first) != ports.end();
      if (ours && state == LinkState::Ready && gates.contains(slotOf(pair.second))) ++linked;
    }
    return !ports.empty() && linked == ports.size();
  }
  [[nodiscard]] bool gateOpen(GlobalID stream) const {
    const auto& ports = fixture.graph.portsOf(stream, PortDirection::Output);
    for (const auto& [pair, state] : links_) {
      const bool ours = std::find(ports.begin(), ports.end(), pair.first) != ports.end();
      if (ours && gates.contains(slotOf(pair.second))) return true;
    }
    return false;
  }

  GraphFixture fixture;
  GlobalID sinkA = 0, sinkB = 0, filter = 0, parking = 0, client = 0, pulseClient = 0;
  std::set<GlobalID> streams;
  std::set<std::size_t> gates;  // the open ones
  std::size_t mostSlots = 1000;
  bool refuseLinks = false;
  bool parkingIsReady = true;
  bool livelocked = false;
  bool gaveBackWhileOpen = false;  // a direct path was asked for while the route was still heard
  std::size_t targetsWritten = 0;
  std::function<void()> afterUpdate;
  TakeoverRegistry takeover;
  StreamCapture capture{takeover, *this, {"FL", "FR"}, kParking};

 private:
  void writeTarget(GlobalID stream, const std::optional<MetadataValue>& value) override {
    ++targetsWritten;
    const bool parks = value && value->text == kParking;
    gaveBackWhileOpen = gaveBackWhileOpen || (!parks && gateOpen(stream));
    writeMetadata(stream, value);
  }
  bool growSlots(std::size_t count) override {
    if (count > mostSlots) return false;
    while (slots_ < count) {
      later([this, slot = slots_] {
        for (std::size_t channel = 0; channel < 2; ++channel) {
          slotPorts_[{slot, channel}] =
              fixture.addPort(filter, "in", channel == 0 ? "FL" : "FR", slot * 2 + channel);
        }
      });
      ++slots_;
    }
    return true;
  }
  void setGate(std::size_t slot, bool open) override {
    if (open) {
      gates.insert(slot);
    } else {
      gates.erase(slot);
    }
  }
  [[nodiscard]] bool parkingReady() const override { return parkingIsReady; }
  [[nodiscard]] std::optional<GlobalID> slotPort(std::size_t slot, std::size_t channel) const override {
    const auto found = slotPorts_.find({slot, channel});
    return found == slotPorts_.end() ? std::nullopt : std::optional{found->second};
  }
  [[nodiscard]] LinkState linkState(GlobalID outputPort, GlobalID inputPort) const override {
    const auto found = links_.find({outputPort, inputPort});
    return found == links_.end() ? LinkState::Missing : found->second;
  }

  void later(std::function<void()> event) { events_.push_back(std::move(event)); }
  [[nodiscard]] std::size_t slotOf(GlobalID port) const {
    for (const auto& [slot, candidate] : slotPorts_) {
      if (candidate == port) return slot.first;
    }
    return static_cast<std::size_t>(-1);
  }
  void writeMetadata(GlobalID stream, const std::optional<MetadataValue>& value) {
    later([this, stream, value] {
      const auto* current = fixture.graph.metadata(stream, "target.object");
      const bool same = value ? current != nullptr && *current == *value : current == nullptr;
      // The server tells of changes only, and not of streams that have gone.
      if (same || !streams.contains(stream) || !fixture.graph.metadataPresent()) return;
      fixture.graph.setMetadata(stream, "target.object", value);
      takeover.targetWritten(fixture.graph, stream, value);
      capture.targetWritten(fixture.graph, stream, value, fixture.now);
      later([this] { manage(); });
    });
  }
  // Makes the links that the capture wants, and drops the others.
  void makeLinks() {
    const std::set<StreamCapture::LinkPair> wanted{capture.wantedLinks().begin(),
                                                   capture.wantedLinks().end()};
    std::erase_if(links_, [&](const auto& entry) { return !wanted.contains(entry.first); });
    for (const auto& pair : wanted) {
      if (!links_.emplace(pair, LinkState::Pending).second) continue;
      later([this, pair] {
        const auto found = links_.find(pair);
        if (found != links_.end()) found->second = refuseLinks ? LinkState::Failed : LinkState::Ready;
      });
    }
  }

  // The session manager: puts every stream where its target says.
  void manage() {
    if (!managing_) return;
    for (const GlobalID stream : streams) {
      const auto* node = fixture.graph.node(stream);
      if (propertyFlag(node->properties, "node.dont-reconnect") && managed_.contains(stream)) continue;
      const GlobalID target = targetOf(stream);
      if (managed_.contains(stream) && managed_.at(stream) == target) continue;
      managed_[stream] = target;
      later([this, stream] { dropManagedLinks(stream); });
      later([this, stream, target] { linkTo(stream, target); });
    }
  }
  [[nodiscard]] GlobalID targetOf(GlobalID stream) const {
    std::optional<MetadataValue> value;
    if (const auto* metadata = fixture.graph.metadata(stream, "target.object")) value = *metadata;
    return wantedNode(fixture.graph, stream, value).value_or(sinkA);
  }
  void linkTo(GlobalID stream, GlobalID target) {
    if (!streams.contains(stream) || !managing_ || managed_[stream] != target) return;
    if (fixture.graph.portsOf(stream, PortDirection::Output).empty()) fixture.addStereoPorts(stream, "out");
    const auto outputs = fixture.graph.portsOf(stream, PortDirection::Output);
    const auto inputs = fixture.graph.portsOf(target, PortDirection::Input);
    for (std::size_t channel = 0; channel < std::min<std::size_t>(outputs.size(), 2); ++channel) {
      managedLinks_[stream].push_back(fixture.addLink(outputs[channel], inputs[channel]));
    }
    if (unanswered_.contains(stream) && target != parking) {
      unanswered_.erase(stream);
      later([this, stream] { fixture.graph.describeNode(stream, {{"pulse.attr.tlength", "4096"}}); });
    }
  }
  void dropManagedLinks(GlobalID stream) {
    auto& links = managedLinks_[stream];
    if (links.empty()) return;
    fixture.graph.removeGlobal(links.back());
    links.pop_back();
    if (!links.empty()) events_.push_front([this, stream] { dropManagedLinks(stream); });
    if (!managing_) managed_.erase(stream);
  }
  void dropLinksOf(GlobalID stream) {
    for (const GlobalID link : managedLinks_[stream]) fixture.graph.removeGlobal(link);
    managedLinks_.erase(stream);
    managed_.erase(stream);
  }

  std::deque<std::function<void()>> events_;
  std::size_t slots_ = 0;
  std::map<std::pair<std::size_t, std::size_t>, GlobalID> slotPorts_;
  std::map<StreamCapture::LinkPair, LinkState> links_;
  std::map<GlobalID, GlobalID> managed_;                    // where the session manager has put a stream
  std::map<GlobalID, std::vector<GlobalID>> managedLinks_;  // the links it made for it
  std::set<GlobalID> unanswered_;  // PulseAudio streams whose client waits for its reply
  bool managing_ = true;
};

}  // namespace monitor::platform::test
