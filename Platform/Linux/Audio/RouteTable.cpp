// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/RouteTable.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "Platform/Linux/Audio/ProcessSource.h"
#include "Platform/Linux/Audio/StreamTarget.h"

namespace monitor::platform {

namespace {

constexpr std::size_t kMostChannels = 64;  // of one device, in the server's own format description
// For a stream that is opened later; every port more makes the takeover longer, about 0.3 ms each.
constexpr std::size_t kSpareSlots = 1;

AudioOutcome invalid(std::string text) {
  return AudioOutcome::failure(audiostatus::kInvalidArgument, std::move(text));
}

}  // namespace

RouteTable::RouteTable(const GraphModel& graph, const ProcessObjects& processes, const DeviceObjects& devices,
                       ObjectIDs& ids, std::function<void()> changed)
    : graph_(graph), processes_(processes), devices_(devices), ids_(ids), changed_(std::move(changed)) {}

RouteTable::~RouteTable() = default;

AudioOutcome RouteTable::checkTap(const ProcessTapDescription& description) const {
  if (description.processes.empty() || description.uuid.empty())
    return invalid("A tap needs processes and a UUID.");
  for (const AudioObjectID process : description.processes) {
    if (processes_.object(process) == nullptr) {
      return AudioOutcome::failure(audiostatus::kUnknownObject,
                                   fmt::format("There is no process object {}.", process));
    }
  }
  const auto device = devices_.withUID(description.deviceUID);
  if (!device || *device != devices_.defaultDevice()) {
    return AudioOutcome::failure(
        audiostatus::kNoDevice,
        fmt::format("\"{}\" is not the default output device.", description.deviceUID));
  }
  const std::uint32_t channels = devices_.object(*device)->format.channelsPerFrame;
  if (channels == 0 || channels > kMostChannels) {
    return AudioOutcome::failure(
        audiostatus::kNoDevice,
        fmt::format("The output device \"{}\" has {} channels.", description.deviceUID, channels));
  }
  return {};
}

AudioOutcome RouteTable::beginTap(PipeWireConnection& connection, View view,
                                  const ProcessTapDescription& description, AudioObjectID& id) {
  if (auto outcome = checkTap(description); !outcome.ok()) return outcome;
  id = ids_.next();
  if (!takeover_.claim(id, description.processes)) {
    return AudioOutcome::failure(audiostatus::kAlreadyTapped,
                                 "The program is routed by another client already.");
  }
  Tap tap;
  tap.view = view;
  tap.uuid = description.uuid;
  tap.deviceUID = description.deviceUID;
  tap.processes = description.processes;
  if (auto outcome = makeRoute(connection, id, tap, description); !outcome.ok()) {
    takeover_.release(id);
    return outcome;
  }
  taps_.emplace(id, std::move(tap));
  return {};
}

AudioOutcome RouteTable::makeRoute(PipeWireConnection& connection, AudioObjectID id, Tap& tap,
                                   const ProcessTapDescription& description) {
  if (connection.core() == nullptr) {
    return AudioOutcome::failure(audiostatus::kServerGone, "There is no connection to the audio server.");
  }
  const DeviceObject& device = *devices_.object(devices_.defaultDevice());
  tap.format = device.format;
  const auto streams = streamsOf(tap.processes);
  if (auto outcome = checkCapture(graph_, takeover_, streams, device.node, {}); !outcome.ok()) return outcome;
  const std::int32_t servicePid = getpid();
  TapRoute::Setup setup{fmt::format("vesk-monitor.route.{}.{}", servicePid, id),
                        makeParkingName(servicePid, ++routes_),
                        description.name,
                        device.node,
                        device.incarnation,
                        channelsOf(graph_, device.node),
                        streams.size() + kSpareSlots};
  try {
    tap.route = std::make_unique<TapRoute>(connection, graph_, takeover_, std::move(setup), changed_);
  } catch (const AudioCallError& error) {
    return error.outcome();
  }
  return {};
}

RouteTable::Pending RouteTable::tapOutcome(AudioObjectID id) const {
  const auto tap = taps_.find(id);
  return tap == taps_.end() ? invalid("The tap is gone.") : tap->second.route->tapOutcome();
}

AudioOutcome RouteTable::removeTap(View view, AudioObjectID id) {
  const auto tap = taps_.find(id);
  if (tap == taps_.end() || tap->second.view != view) {
    return AudioOutcome::failure(audiostatus::kUnknownObject, fmt::format("There is no tap {}.", id));
  }
  std::erase_if(aggregates_, [id](const auto& entry) { return entry.second.tap == id; });
  tap->second.route->capture().abandon(graph_);
  taps_.erase(tap);
  takeover_.release(id);
  return {};
}

AudioOutcome RouteTable::beginAggregate(View view, const AggregateDeviceDescription& description,
                                        AudioObjectID& device) {
  if (description.subdevices.size() != 1 || description.taps.size() != 1) {
    return invalid("An aggregate device needs one output device and one tap.");
  }
  const auto tap = std::find_if(taps_.begin(), taps_.end(), [&](const auto& entry) {
    return entry.second.view == view && entry.second.uuid == description.taps.front().uid;
  });
  if (tap == taps_.end()) {
    return AudioOutcome::failure(audiostatus::kUnknownObject,
                                 fmt::format("There is no tap \"{}\".", description.taps.front().uid));
  }
  if (description.subdevices.front().uid != tap->second.deviceUID) {
    return AudioOutcome::failure(audiostatus::kNoDevice, "The tap belongs to another output device.");
  }
  const bool taken = std::any_of(aggregates_.begin(), aggregates_.end(),
                                 [&](const auto& entry) { return entry.second.tap == tap->first; });
  if (taken)
    return AudioOutcome::failure(audiostatus::kAlreadyTapped, "The tap is in an aggregate device already.");
  device = ids_.next();
  aggregates_.emplace(device, Aggregate{view, description.uid, tap->first, {}, 0});
  tap->second.route->connectOutput();
  updateRoute(tap->second, secondsSinceBoot());
  return {};
}

RouteTable::Pending RouteTable::aggregateOutcome(AudioObjectID device) const {
  const Aggregate* found = aggregate(device);
  return found == nullptr ? noSuchDevice(device) : routeOf(*found)->outputOutcome();
}

AudioOutcome RouteTable::removeAggregate(View view, AudioObjectID device) {
  Aggregate* found = aggregate(view, device);
  if (found == nullptr) return noSuchDevice(device);
  finishStop(device);
  routeOf(*found)->disconnectOutput();
  aggregates_.erase(device);
  return {};
}

AudioOutcome RouteTable::addProcedure(View view, AudioObjectID device, AudioIOBlock block,
                                      AudioIOProcID& procedure) {
  Aggregate* found = aggregate(view, device);
  if (found == nullptr) return noSuchDevice(device);
  if (!block) return invalid("An I/O procedure needs a block.");
  procedure = ++lastProcedure_;
  found->procedures.emplace(procedure, std::make_shared<const AudioIOBlock>(std::move(block)));
  return {};
}

AudioOutcome RouteTable::removeProcedure(View view, AudioObjectID device, AudioIOProcID procedure) {
  Aggregate* found = aggregate(view, device);
  if (found == nullptr) return noSuchDevice(device);
  if (!found->procedures.contains(procedure)) return noSuchProcedure(procedure);
  AudioOutcome outcome;
  if (found->started == procedure) outcome = finishStop(device);
  found->procedures.erase(procedure);
  return outcome;
}

AudioOutcome RouteTable::beginStart(View view, AudioObjectID device, AudioIOProcID procedure) {
  Aggregate* found = aggregate(view, device);
  if (found == nullptr) return noSuchDevice(device);
  const auto entry = found->procedures.find(procedure);
  if (entry == found->procedures.end()) return noSuchProcedure(procedure);
  if (found->started == procedure) return {};
  if (found->started != 0) {
    return AudioOutcome::failure(audiostatus::kAlreadyTapped, "The device runs another I/O procedure.");
  }
  Tap& tap = taps_.at(found->tap);
  const auto streams = streamsOf(tap.processes);
  if (auto outcome = checkCapture(graph_, takeover_, streams, tap.route->device(), tap.route->parkingName());
      !outcome.ok()) {
    return outcome;
  }
  found->started = procedure;
  tap.route->mixer().attach(entry->second);
  tap.route->capture().start();
  updateRoute(tap, secondsSinceBoot());
  return {};
}

RouteTable::Pending RouteTable::startOutcome(AudioObjectID device) const {
  const Aggregate* found = aggregate(device);
  return found == nullptr ? noSuchDevice(device) : routeOf(*found)->startOutcome();
}

AudioOutcome RouteTable::beginStop(View view, AudioObjectID device, AudioIOProcID procedure) {
  Aggregate* found = aggregate(view, device);
  if (found == nullptr) return noSuchDevice(device);
  if (!found->procedures.contains(procedure)) return noSuchProcedure(procedure);
  if (found->started == procedure) routeOf(*found)->capture().release(graph_);
  return {};
}

RouteTable::Pending RouteTable::stopOutcome(AudioObjectID device) const {
  const Aggregate* found = aggregate(device);
  if (found == nullptr) return noSuchDevice(device);
  if (!routeOf(*found)->capture().released()) return std::nullopt;
  return AudioOutcome{};
}

AudioOutcome RouteTable::finishStop(AudioObjectID device) {
  const auto found = aggregates_.find(device);
  if (found == aggregates_.end() || std::exchange(found->second.started, 0) == 0) return {};
  TapRoute& route = *routeOf(found->second);
  route.capture().abandon(graph_);
  const bool detached = route.mixer().detach();
  updateRoute(taps_.at(found->second.tap), secondsSinceBoot());
  if (detached) return {};
  return AudioOutcome::failure(audiostatus::kTimedOut,
                               "The realtime thread does not leave the I/O procedure.");
}

void RouteTable::beginClose(View view) {
  for (auto& [device, each] : aggregates_) {
    if (each.view == view && each.started != 0) routeOf(each)->capture().release(graph_);
  }
}

RouteTable::Pending RouteTable::closeOutcome(View view) const {
  const bool released = std::all_of(aggregates_.begin(), aggregates_.end(), [&](const auto& entry) {
    return entry.second.view != view || routeOf(entry.second)->capture().released();
  });
  if (!released) return std::nullopt;
  return AudioOutcome{};
}

void RouteTable::finishClose(View view) {
  std::vector<AudioObjectID> devices;
  for (const auto& [device, each] : aggregates_) {
    if (each.view == view) devices.push_back(device);
  }
  for (const AudioObjectID device : devices) removeAggregate(view, device);
  std::vector<AudioObjectID> taps;
  for (const auto& [tap, each] : taps_) {
    if (each.view == view) taps.push_back(tap);
  }
  for (const AudioObjectID tap : taps) removeTap(view, tap);
}

void RouteTable::update(double now) {
  takeover_.prune(graph_);
  for (auto& [id, tap] : taps_) updateRoute(tap, now);
}

void RouteTable::updateRoute(Tap& tap, double now) {
  tap.route->update(streamsOf(tap.processes), sounding(tap.processes), now);
}

std::optional<double> RouteTable::nextWake() const {
  std::optional<double> next;
  for (const auto& [id, tap] : taps_) {
    const auto wake = tap.route->nextWake();
    if (wake && (!next || *wake < *next)) next = wake;
  }
  return next;
}

void RouteTable::metadataWritten(GlobalID subject, const std::string& key,
                                 const std::optional<MetadataValue>& value, double now) {
  if (key != kTargetObject) return;
  takeover_.targetWritten(graph_, subject, value);
  for (auto& [id, tap] : taps_) tap.route->capture().targetWritten(graph_, subject, value, now);
}

void RouteTable::metadataReplaced() {
  for (auto& [id, tap] : taps_) tap.route->capture().metadataReplaced();
}

void RouteTable::sweepStale(PipeWireConnection& connection) {
  for (const GlobalID stream : TakeoverRegistry::staleStreams(graph_)) {
    connection.setMetadata(stream, std::string{kTargetObject}, takeover_.targetToRestore(graph_, stream));
  }
}

void RouteTable::clear() {
  aggregates_.clear();
  taps_.clear();
  takeover_.clear();
}

std::map<AudioObjectID, AudioStreamFormat> RouteTable::tapFormats() const {
  std::map<AudioObjectID, AudioStreamFormat> formats;
  for (const auto& [id, tap] : taps_) formats.emplace(id, tap.format);
  return formats;
}

std::map<AudioObjectID, std::string> RouteTable::aggregateUIDs() const {
  std::map<AudioObjectID, std::string> uids;
  for (const auto& [id, each] : aggregates_) uids.emplace(id, each.uid);
  return uids;
}

std::vector<GlobalID> RouteTable::streamsOf(const std::vector<AudioObjectID>& processes) const {
  std::vector<GlobalID> streams;
  for (const auto& [id, node] : graph_.nodes()) {
    const ProcessObject* process = processes_.objectOfStream(graph_, node);
    if (process != nullptr && std::find(processes.begin(), processes.end(), process->id) != processes.end()) {
      streams.push_back(id);
    }
  }
  return streams;
}

bool RouteTable::sounding(const std::vector<AudioObjectID>& processes) const {
  return std::any_of(processes.begin(), processes.end(), [this](AudioObjectID id) {
    const ProcessObject* process = processes_.object(id);
    return process != nullptr && process->running;
  });
}

RouteTable::Aggregate* RouteTable::aggregate(View view, AudioObjectID device) {
  const auto found = aggregates_.find(device);
  return found == aggregates_.end() || found->second.view != view ? nullptr : &found->second;
}

const RouteTable::Aggregate* RouteTable::aggregate(AudioObjectID device) const {
  const auto found = aggregates_.find(device);
  return found == aggregates_.end() ? nullptr : &found->second;
}

TapRoute* RouteTable::routeOf(const Aggregate& aggregate) const {
  return taps_.at(aggregate.tap).route.get();
}

AudioOutcome RouteTable::noSuchDevice(AudioObjectID device) {
  return AudioOutcome::failure(audiostatus::kUnknownObject,
                               fmt::format("There is no aggregate device {}.", device));
}

AudioOutcome RouteTable::noSuchProcedure(AudioIOProcID procedure) {
  return AudioOutcome::failure(audiostatus::kUnknownObject,
                               fmt::format("There is no I/O procedure {}.", procedure));
}

}  // namespace monitor::platform
