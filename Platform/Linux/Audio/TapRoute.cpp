// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/TapRoute.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace monitor::platform {

namespace {

// A stream that is on its way from one output to another, or about to run, is no reason yet to keep a device
// awake.
constexpr double kElsewhereSettles = 0.5;

}  // namespace

TapRoute::TapRoute(PipeWireConnection& connection, const GraphModel& graph, TakeoverRegistry& takeover,
                   Setup setup, std::function<void()> changed)
    : connection_(connection),
      graph_(graph),
      setup_(std::move(setup)),
      changed_(std::move(changed)),
      parking_(connection.core(), setup_.parkingName, setup_.channels,
               [this](const std::string& why) { fail("parking node", why); }),
      filter_(connection.core(), {setup_.name, setup_.description, setup_.channels, setup_.slots},
              [this](const std::string& why) { fail("filter", why); }),
      outputLinks_(connection.core(), changed_),
      inputLinks_(connection.core(), changed_),
      capture_(takeover, *this, setup_.channels, setup_.parkingName) {
  capture_.prepare();
}

TapRoute::~TapRoute() = default;

void TapRoute::update(const std::vector<GlobalID>& streams, bool sounding, double now) {
  considerKeepingAwake(sounding, now);
  outputLinks_.setWanted(graph_, wantedOutputLinks(), !keepsAwake_);
  capture_.update(graph_, streams, setup_.device, now);
  inputLinks_.setWanted(graph_, capture_.wantedLinks(), false);
}

// The device's cycles stop with the streams that go through here, because the links to it are passive.
// Whoever has the I/O block may take a program that plays, and of which nothing is rendered, for one whose
// route has stalled. So the links are made anew, and not passive, when the program plays elsewhere; they stay
// so, because doing that again would be heard, until the program falls silent.
void TapRoute::considerKeepingAwake(bool sounding, double now) {
  awakeDue_.reset();
  if (!capture_.running() || !sounding) keepsAwake_ = false;
  if (!capture_.running() || !sounding || capture_.sounds(graph_)) {
    elsewhereSince_.reset();
    return;
  }
  if (!elsewhereSince_) elsewhereSince_ = now;
  const double due = *elsewhereSince_ + kElsewhereSettles;
  keepsAwake_ = keepsAwake_ || now >= due;
  if (!keepsAwake_) awakeDue_ = due;
}

std::optional<double> TapRoute::nextWake() const {
  const auto wake = capture_.nextWake();
  if (!wake || !awakeDue_) return wake ? wake : awakeDue_;
  return std::min(*wake, *awakeDue_);
}

std::optional<AudioOutcome> TapRoute::tapOutcome() const {
  if (failure_) return failure_;
  if (!filter_.announced(graph_)) return std::nullopt;
  return AudioOutcome{};
}

std::optional<AudioOutcome> TapRoute::startOutcome() const {
  return failure_ ? failure_ : capture_.startOutcome();
}

void TapRoute::disconnectOutput() {
  outputWanted_ = false;
  outputLinks_.setWanted(graph_, {}, !keepsAwake_);
}

std::optional<AudioOutcome> TapRoute::outputOutcome() const {
  if (failure_) return failure_;
  if (!deviceIsThere()) return AudioOutcome::failure(audiostatus::kNoDevice, "The output device has gone.");
  const auto wanted = wantedOutputLinks();
  if (wanted.size() < setup_.channels.size()) return std::nullopt;
  for (const auto& [output, input] : wanted) {
    switch (outputLinks_.state(output, input)) {
      case LinkState::Failed:
        return AudioOutcome::failure(audiostatus::kLinkFailed,
                                     "The audio server refused to link the output.");
      case LinkState::Missing:
      case LinkState::Pending:
        return std::nullopt;
      case LinkState::Ready:
        break;
    }
  }
  return AudioOutcome{};
}

bool TapRoute::deviceIsThere() const {
  const auto* device = graph_.node(setup_.device);
  return device != nullptr && device->incarnation == setup_.deviceIncarnation;
}

std::vector<LinkSet::LinkPair> TapRoute::wantedOutputLinks() const {
  std::vector<LinkSet::LinkPair> links;
  if (!outputWanted_ || !deviceIsThere()) return links;
  const auto ports = graph_.portsOf(setup_.device, PortDirection::Input);
  for (std::size_t channel = 0; channel < std::min(ports.size(), setup_.channels.size()); ++channel) {
    if (const auto output = filter_.outputPort(graph_, channel)) links.emplace_back(*output, ports[channel]);
  }
  return links;
}

void TapRoute::writeTarget(GlobalID stream, const std::optional<MetadataValue>& value) {
  connection_.setMetadata(stream, "target.object", value);
}

bool TapRoute::growSlots(std::size_t count) {
  // Ports are added in lots, because each addition makes the server set the node up again.
  constexpr std::size_t kLot = 8;
  const std::size_t have = filter_.mixer().slotCount();
  if (count <= have) return true;
  return filter_.growSlots(std::max(count, std::min(have + kLot, RouteMixer::kMostSlots)));
}

void TapRoute::setGate(std::size_t slot, bool open) {
  filter_.mixer().setGate(slot, open);
}

std::optional<GlobalID> TapRoute::slotPort(std::size_t slot, std::size_t channel) const {
  return filter_.slotPort(graph_, slot, channel);
}

LinkState TapRoute::linkState(GlobalID outputPort, GlobalID inputPort) const {
  return inputLinks_.state(outputPort, inputPort);
}

void TapRoute::fail(const std::string& what, const std::string& why) {
  if (failure_) return;
  failure_ = AudioOutcome::failure(audiostatus::kLinkFailed,
                                   fmt::format("The audio server refused the {}: {}.", what, why));
  changed_();
}

std::vector<std::string> channelsOf(const GraphModel& graph, GlobalID device) {
  std::vector<std::string> channels;
  for (const GlobalID port : graph.portsOf(device, PortDirection::Input)) {
    channels.push_back(graph.port(port)->channel);
  }
  return channels;
}

}  // namespace monitor::platform
