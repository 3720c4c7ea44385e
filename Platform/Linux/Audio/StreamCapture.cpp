// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/StreamCapture.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "Platform/Linux/Audio/ClientProcess.h"
#include "Platform/Linux/Audio/StreamTarget.h"

namespace monitor::platform {

namespace {

// The PulseAudio front answers a client's request for a stream only once the stream is linked to an output
// that the front knows; parked before that, the client waits for ever. It then writes the buffer attributes
// into the stream's properties. They are no documented interface, hence the time limit.
constexpr std::string_view kPulseAnswered = "pulse.attr.tlength";
constexpr double kPulseAnswerLimit = 0.3;
// After somebody else has moved a stream the session manager may still make a direct link on that account.
constexpr double kForeignMoveSettles = 0.01;

// The session manager moves streams one after the other, each more slowly the more there are. Of many, it is
// enough that all have been told to move: each is heard through the route from the moment its own direct link
// has gone.
constexpr std::size_t kFewStreams = 16;

bool isPulseStream(const GraphModel& graph, const GraphNode& node) {
  const auto id = propertyNumber(node.properties, "client.id");
  const auto* client = id && *id < kNoGlobal ? graph.client(static_cast<GlobalID>(*id)) : nullptr;
  return client != nullptr && isPulseClient(*client);
}

bool isMono(const std::vector<GlobalID>& ports) {
  return ports.size() == 1;
}

}  // namespace

AudioOutcome checkCapture(const GraphModel& graph, const TakeoverRegistry& takeover,
                          const std::vector<GlobalID>& streams, GlobalID device,
                          std::string_view ownParkingName) {
  std::size_t onDevice = 0;
  for (const GlobalID id : streams) {
    const auto* node = graph.node(id);
    if (node == nullptr) continue;
    const std::string title = streamTitle(*node);
    if (TakeoverRegistry::isParkedByOthers(graph, id, ownParkingName)) {
      return AudioOutcome::failure(audiostatus::kAlreadyTapped,
                                   fmt::format("The stream \"{}\" is routed by another service.", title));
    }
    if (placeOf(graph, id, device, takeover.userTarget(graph, id)) == StreamPlace::Elsewhere) continue;
    ++onDevice;
    if (!isMovable(*node)) {
      return AudioOutcome::failure(
          audiostatus::kNotMovable,
          fmt::format("The stream \"{}\" may not be moved away from its output.", title));
    }
    if (node->coding == StreamCoding::Encoded) {
      return AudioOutcome::failure(audiostatus::kNotPcm,
                                   fmt::format("The stream \"{}\" is encoded and cannot be scaled.", title));
    }
  }
  if (onDevice == 0 && !streams.empty()) {
    return AudioOutcome::failure(audiostatus::kNoStreamOnDevice,
                                 "The program plays on another output than the default one.");
  }
  return {};
}

StreamCapture::StreamCapture(TakeoverRegistry& takeover, CaptureActions& actions,
                             std::vector<std::string> channels, std::string parkingName)
    : takeover_(takeover),
      actions_(actions),
      channels_(std::move(channels)),
      parkingName_(std::move(parkingName)) {}

void StreamCapture::start() {
  running_ = true;
  awaited_.reset();
}

void StreamCapture::release(const GraphModel& graph) {
  preparing_ = running_ = false;
  failure_.reset();
  for (auto& [incarnation, stream] : streams_) {
    if (stream.phase == Phase::Linking) setFree(stream);
    if (stream.phase != Phase::Parked) continue;
    setOpen(stream, false);
    writeBack(stream, takeover_.targetToRestore(graph, stream.node));
    takeover_.giveBack(graph, stream.node);
    stream.phase = Phase::Releasing;
  }
}

void StreamCapture::abandon(const GraphModel& graph) {
  release(graph);
  for (auto& [incarnation, stream] : streams_) setFree(stream);
  streams_.clear();
  wantedLinks_.clear();
  nextWake_.reset();
}

void StreamCapture::update(const GraphModel& graph, const std::vector<GlobalID>& streams, GlobalID device,
                           double time) {
  nextWake_.reset();
  adopt(graph, streams);
  const Now now{graph, device, time};
  for (auto& [incarnation, stream] : streams_) step(stream, now);
  updateAwaited(now);
  collectLinks(graph);
}

void StreamCapture::updateAwaited(const Now& now) {
  if (!running_) return;
  const bool first = !awaited_;
  if (first) awaited_.emplace();
  for (const auto& [incarnation, stream] : streams_) {
    const bool coming = stream.phase != Phase::Free || capturable(stream, now);
    if (first && coming) awaited_->insert(incarnation);
    if (!coming) awaited_->erase(incarnation);
  }
}

void StreamCapture::adopt(const GraphModel& graph, const std::vector<GlobalID>& streams) {
  std::set<Incarnation> present;
  for (const GlobalID id : streams) {
    const auto* node = graph.node(id);
    if (node == nullptr) continue;
    present.insert(node->incarnation);
    streams_[node->incarnation].node = id;
  }
  for (auto entry = streams_.begin(); entry != streams_.end();) {
    if (present.contains(entry->first)) {
      ++entry;
    } else {
      setFree(entry->second);
      entry = streams_.erase(entry);
    }
  }
}

void StreamCapture::step(Stream& stream, const Now& now) {
  // A stream may go through several phases at once: one that is not linked yet is parked where it is found.
  if (stream.phase == Phase::Releasing) stepReleasing(stream, now);
  if (stream.phase == Phase::Free) stepFree(stream, now);
  if (stream.phase == Phase::Linking) stepLinking(stream, now);
  if (stream.phase == Phase::Parked) stepParked(stream, now);
}

bool StreamCapture::capturable(const Stream& stream, const Now& now) const {
  const auto* node = now.graph.node(stream.node);
  return node != nullptr && !stream.givenUp && isMovable(*node) && node->coding != StreamCoding::Encoded &&
         !TakeoverRegistry::isParkedByOthers(now.graph, stream.node, parkingName_) &&
         placeOf(now.graph, stream.node, now.device, takeover_.userTarget(now.graph, stream.node)) !=
             StreamPlace::Elsewhere;
}

bool StreamCapture::waitsForPulse(const Stream& stream, const Now& now) {
  const auto* node = now.graph.node(stream.node);
  if (!isPulseStream(now.graph, *node) || !propertyText(node->properties, kPulseAnswered).empty())
    return false;
  if (directSinks(now.graph, stream.node).empty()) return true;
  const double limit = node->seenAt + kPulseAnswerLimit;
  if (now.time >= limit) return false;
  wakeAt(limit);
  return true;
}

void StreamCapture::stepFree(Stream& stream, const Now& now) {
  // Our own write may have come after the one for which the stream was let go.
  if (pointsHere(stream, now.graph) && !stream.written) {
    writeBack(stream, takeover_.targetToRestore(now.graph, stream.node));
  }
  if (!running_ && !preparing_) return;
  const bool direct = !directSinks(now.graph, stream.node).empty();
  if (!direct && !mayPark()) return;
  if (!capturable(stream, now) || waitsForPulse(stream, now) || !takeSlot(stream)) return;
  if (direct) {
    stream.phase = Phase::Linking;
  } else {
    park(stream, now);
  }
}

void StreamCapture::stepLinking(Stream& stream, const Now& now) {
  if (!capturable(stream, now)) return setFree(stream);
  switch (linkStateOf(stream, now.graph)) {
    case LinkState::Ready:
      if (mayPark()) park(stream, now);
      return;
    case LinkState::Failed:
      fail(AudioOutcome::failure(audiostatus::kLinkFailed,
                                 fmt::format("The audio server refused to link the stream \"{}\".",
                                             streamTitle(*now.graph.node(stream.node)))));
      stream.givenUp = true;
      return setFree(stream);
    case LinkState::Missing:
    case LinkState::Pending:
      return;
  }
}

void StreamCapture::park(Stream& stream, const Now& now) {
  takeover_.park(now.graph, stream.node);
  stream.wantedWhenParked = wantedNode(now.graph, stream.node, takeover_.userTarget(now.graph, stream.node));
  writeParking(stream);
  stream.phase = Phase::Parked;
}

bool StreamCapture::wantedElsewhere(const Stream& stream, const Now& now) const {
  const auto wanted = wantedNode(now.graph, stream.node, takeover_.userTarget(now.graph, stream.node));
  // A wish that the session manager had not followed before the stream was parked is no reason now.
  return wanted && *wanted != now.device && wanted != stream.wantedWhenParked;
}

void StreamCapture::stepParked(Stream& stream, const Now& now) {
  const auto* node = now.graph.node(stream.node);
  if (linkStateOf(stream, now.graph) == LinkState::Failed) stream.givenUp = true;
  if (stream.givenUp || wantedElsewhere(stream, now) || node->coding == StreamCoding::Encoded) {
    return letGo(stream, now.graph);
  }
  if (!pointsHere(stream, now.graph) && !stream.written && now.graph.metadataPresent()) writeParking(stream);
  if (now.time < stream.closedUntil) wakeAt(stream.closedUntil);
  setOpen(stream, now.time >= stream.closedUntil && directSinks(now.graph, stream.node).empty());
}

void StreamCapture::letGo(Stream& stream, const GraphModel& graph) {
  setOpen(stream, false);
  if (stream.written || pointsHere(stream, graph)) {
    writeBack(stream, takeover_.targetToRestore(graph, stream.node));
  }
  takeover_.giveBack(graph, stream.node);
  setFree(stream);
}

void StreamCapture::stepReleasing(Stream& stream, const Now& now) {
  // Without a session manager or an output nobody will ever make a direct link.
  const bool nobodyLinks = !now.graph.metadataPresent() || !now.graph.defaultSink();
  if (nobodyLinks || !directSinks(now.graph, stream.node).empty()) setFree(stream);
}

void StreamCapture::targetWritten(const GraphModel& graph, GlobalID id,
                                  const std::optional<MetadataValue>& value, double now) {
  const auto* node = graph.node(id);
  const auto entry = node == nullptr ? streams_.end() : streams_.find(node->incarnation);
  if (entry == streams_.end()) return;
  Stream& stream = entry->second;
  settleWritten(stream, value);
  if (stream.phase != Phase::Parked || (value && value->text == parkingName_)) return;
  // The session manager is about to make a direct link: the two paths must not be heard together.
  setOpen(stream, false);
  stream.closedUntil = now + kForeignMoveSettles;
}

void StreamCapture::metadataReplaced() {
  for (auto& [incarnation, stream] : streams_) stream.written.reset();
}

bool StreamCapture::takeSlot(Stream& stream) {
  std::set<std::size_t> used;
  for (const auto& [incarnation, other] : streams_) {
    if (other.slot) used.insert(*other.slot);
  }
  std::size_t slot = 0;
  while (used.contains(slot)) ++slot;
  if (!actions_.growSlots(slot + 1)) {
    fail(AudioOutcome::failure(audiostatus::kTooManyStreams, "The program has too many streams."));
    stream.givenUp = true;
    return false;
  }
  stream.slot = slot;
  return true;
}

void StreamCapture::writeParking(Stream& stream) {
  writeTarget(stream, {MetadataValue{"Spa:String", parkingName_}, false, std::nullopt});
}

void StreamCapture::writeBack(Stream& stream, const std::optional<MetadataValue>& value) {
  writeTarget(stream, {value, true, std::nullopt});
}

void StreamCapture::writeTarget(Stream& stream, Written written) {
  actions_.writeTarget(stream.node, written.value);
  stream.written = std::move(written);
}

void StreamCapture::settleWritten(Stream& stream, const std::optional<MetadataValue>& value) {
  if (!stream.written) return;
  const bool echo = value.has_value() == stream.written->value.has_value() &&
                    (!value || value->text == stream.written->value->text);
  if (echo) {
    const auto overwritten = std::exchange(stream.written, std::nullopt)->overwritten;
    if (overwritten) writeBack(stream, *overwritten);
  } else if (stream.written->givesBack && !(value && isParkingName(value->text))) {
    stream.written->overwritten = value;
  }
}

bool StreamCapture::pointsHere(const Stream& stream, const GraphModel& graph) const {
  const auto* target = graph.metadata(stream.node, kTargetObject);
  return target != nullptr && target->text == parkingName_;
}

void StreamCapture::setOpen(Stream& stream, bool open) {
  if (!stream.slot || stream.open == open) return;
  stream.open = open;
  actions_.setGate(*stream.slot, open);
}

void StreamCapture::setFree(Stream& stream) {
  setOpen(stream, false);
  stream.slot.reset();
  stream.phase = Phase::Free;
}

bool StreamCapture::mayPark() const {
  return running_ && actions_.parkingReady();
}

void StreamCapture::fail(AudioOutcome outcome) {
  if (!failure_) failure_ = std::move(outcome);
}

void StreamCapture::wakeAt(double time) {
  nextWake_ = nextWake_ ? std::min(*nextWake_, time) : time;
}

void StreamCapture::collectLinks(const GraphModel& graph) {
  wantedLinks_.clear();
  for (const auto& [incarnation, stream] : streams_) {
    const auto links = linksOf(stream, graph);
    wantedLinks_.insert(wantedLinks_.end(), links.begin(), links.end());
  }
}

std::vector<StreamCapture::LinkPair> StreamCapture::linksOf(const Stream& stream,
                                                            const GraphModel& graph) const {
  std::vector<LinkPair> links;
  if (!stream.slot) return links;
  const auto ports = graph.portsOf(stream.node, PortDirection::Output);
  const bool named = std::any_of(ports.begin(), ports.end(), [&](GlobalID port) {
    return std::find(channels_.begin(), channels_.end(), graph.port(port)->channel) != channels_.end();
  });
  for (std::size_t channel = 0; channel < channels_.size(); ++channel) {
    const auto input = actions_.slotPort(*stream.slot, channel);
    if (!input) continue;
    for (std::size_t index = 0; index < ports.size(); ++index) {
      const bool matches = named ? graph.port(ports[index])->channel == channels_[channel] : index == channel;
      if (matches || isMono(ports)) links.emplace_back(ports[index], *input);
    }
  }
  return links;
}

LinkState StreamCapture::linkStateOf(const Stream& stream, const GraphModel& graph) const {
  const auto links = linksOf(stream, graph);
  if (links.empty()) return LinkState::Missing;
  LinkState worst = LinkState::Ready;
  for (const auto& [output, input] : links) {
    const LinkState state = actions_.linkState(output, input);
    if (state == LinkState::Failed) return state;
    if (state != LinkState::Ready) worst = state;
  }
  return worst;
}

std::optional<AudioOutcome> StreamCapture::startOutcome() const {
  if (failure_) return failure_;
  if (!awaited_ || !actions_.parkingReady()) return std::nullopt;
  for (const auto& [incarnation, stream] : streams_) {
    if (!awaited_->contains(incarnation) || stream.open) continue;
    if (stream.phase != Phase::Parked || awaited_->size() <= kFewStreams) return std::nullopt;
  }
  return AudioOutcome{};
}

bool StreamCapture::released() const {
  return std::none_of(streams_.begin(), streams_.end(),
                      [](const auto& entry) { return entry.second.phase == Phase::Releasing; });
}

std::size_t StreamCapture::parkedCount() const {
  return static_cast<std::size_t>(std::count_if(streams_.begin(), streams_.end(), [](const auto& entry) {
    return entry.second.phase == Phase::Parked;
  }));
}

bool StreamCapture::sounds(const GraphModel& graph) const {
  return std::any_of(streams_.begin(), streams_.end(), [&](const auto& entry) {
    const auto* node = graph.node(entry.second.node);
    return entry.second.slot && node != nullptr && node->state == NodeState::Running;
  });
}

}  // namespace monitor::platform
