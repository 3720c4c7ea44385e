// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/AudioSystem.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>
#include <vector>

#include "Platform/Linux/Audio/ClientProcess.h"

namespace monitor::platform {

namespace {

constexpr std::chrono::milliseconds kCallDeadline{1000};

void logUnresolved(const GraphClient& client) {
  fmt::print(stderr,
             "The process of the audio client \"{}\" (claimed pid {}) cannot be told; it is not listed.\n",
             propertyText(client.properties, "application.name"),
             propertyText(client.properties, "application.process.id"));
}

AudioOutcome noConnection() {
  return AudioOutcome::failure(audiostatus::kServerGone, "There is no connection to the audio server.");
}

}  // namespace

std::vector<std::pair<AudioObjectID, AudioObjectAddress>> changedProperties(const ObjectTable& before,
                                                                            const ObjectTable& after) {
  std::vector<std::pair<AudioObjectID, AudioObjectAddress>> changed;
  if (before.defaultDevice != after.defaultDevice) {
    changed.emplace_back(audio::kSystemObject, audio::kDefaultOutputDevice);
  }
  if (before.processes != after.processes)
    changed.emplace_back(audio::kSystemObject, audio::kProcessObjectList);
  for (const auto& process : after.processes) {
    const ProcessObject* earlier = before.process(process.id);
    if (earlier != nullptr && earlier->running != process.running) {
      changed.emplace_back(process.id, audio::kProcessIsRunningOutput);
    }
  }
  for (const auto& [id, device] : after.devices) {
    const auto earlier = before.devices.find(id);
    if (earlier != before.devices.end() && !(earlier->second.format == device.format)) {
      changed.emplace_back(id, audio::kStreamFormat);
    }
  }
  return changed;
}

AudioSystem::AudioSystem()
    : processes_(
          ids_, [this](const GraphClient& client) { return processOfClient(client, processSource_); },
          logUnresolved),
      devices_(ids_),
      wake_(thread_.loop(), [this] { updateRoutes(); }),
      calls_(thread_),
      connection_(std::make_unique<PipeWireConnection>(thread_, graph_,
                                                       static_cast<PipeWireConnection::Observer&>(*this))),
      routes_(graph_, processes_, devices_, ids_, [this] { connection_->notifySoon(); }) {
  thread_.post([this] { connection_->open(); });
  thread_.start();
}

AudioSystem::~AudioSystem() {
  thread_.stop();
}

void AudioSystem::graphChanged() {
  updateObjects();
  updateRoutes();
}

void AudioSystem::metadataWritten(GlobalID subject, const std::string& key,
                                  const std::optional<MetadataValue>& value) {
  routes_.metadataWritten(subject, key, value, secondsSinceBoot());
}

void AudioSystem::connectionLost() {
  calls_.failAll(noConnection());
  routes_.clear();
  watches_.clear();
  processes_.clear();
  devices_.clear();
}

void AudioSystem::stateChanged() {
  if (connection_->state() == PipeWireConnection::State::Ready) {
    processes_.update(graph_);
    devices_.update(graph_);
    watchProcesses();
    routes_.sweepStale(*connection_);
  }
  publish();
}

void AudioSystem::updateRoutes() {
  if (std::exchange(metadataGeneration_, graph_.metadataGeneration()) != graph_.metadataGeneration()) {
    routes_.metadataReplaced();
  }
  const double now = secondsSinceBoot();
  routes_.update(now);
  calls_.poll();
  if (const auto next = routes_.nextWake()) wake_.arm(*next - now);
}

void AudioSystem::updateObjects() {
  const bool processesChanged = processes_.update(graph_);
  const bool devicesChanged = devices_.update(graph_);
  if (processesChanged) watchProcesses();
  if (processesChanged || devicesChanged) publish();
}

void AudioSystem::watchProcesses() {
  std::erase_if(watches_,
                [this](const auto& watch) { return processes_.objectOfPid(watch.first) == nullptr; });
  std::vector<std::int32_t> ended;
  for (const auto& object : processes_.objects()) {
    if (watches_.contains(object.pid)) continue;
    auto watch = ProcessEndWatch::open(thread_.loop(), object.pid, [this, pid = object.pid] {
      // The watch may not be destroyed from inside its own callback.
      thread_.post([this, pid] { processEnded(pid); });
    });
    if (watch == nullptr && errno == ESRCH) ended.push_back(object.pid);
    if (watch != nullptr) watches_.emplace(object.pid, std::move(watch));
  }
  for (const std::int32_t pid : ended) processEnded(pid);
}

void AudioSystem::processEnded(std::int32_t pid) {
  watches_.erase(pid);
  if (processes_.processEnded(pid)) publish();
}

void AudioSystem::publish() {
  ObjectTable table;
  table.state = connection_->state();
  if (table.state == PipeWireConnection::State::Ready) {
    table.processes = processes_.objects();
    table.devices = devices_.objects();
    table.defaultDevice = devices_.defaultDevice();
    table.taps = routes_.tapFormats();
    table.aggregates = routes_.aggregateUIDs();
  }
  published_.publish(table);

  if (table.state == PipeWireConnection::State::Down) {
    lastReady_.reset();
    owesReturn_ = true;
  }
  if (table.state == PipeWireConnection::State::Ready) tellListeners(std::move(table));
}

void AudioSystem::tellListeners(ObjectTable table) {
  using Property = std::pair<AudioObjectID, AudioObjectAddress>;
  std::vector<Property> changed;
  if (lastReady_) {
    changed = changedProperties(*lastReady_, table);
  } else if (owesReturn_) {
    changed = {Property{audio::kSystemObject, audio::kDefaultOutputDevice},
               Property{audio::kSystemObject, audio::kProcessObjectList}};
  }
  lastReady_ = std::move(table);
  owesReturn_ = false;
  for (const auto& [object, address] : changed) listeners_.notify(object, address);
}

AudioOutcome AudioSystem::call(CallQueue::Operation operation) {
  const auto deadline = CallQueue::Clock::now() + kCallDeadline;
  using State = PipeWireConnection::State;
  const auto table =
      published_.waitFor([](const ObjectTable& each) { return each.state != State::Connecting; }, deadline);
  if (table->state == State::Down) return noConnection();
  auto begin = std::move(operation.begin);
  operation.begin = [this, begin = std::move(begin)]() -> AudioOutcome {
    if (connection_->state() != State::Ready || connection_->core() == nullptr) return noConnection();
    auto outcome = begin();
    publish();
    return outcome;
  };
  return calls_.run(std::move(operation), deadline);
}

// What an operation hands over may arrive after its caller has stopped waiting: it is kept beside the
// operation.

AudioOutcome AudioSystem::createProcessTap(RouteTable::View view, const ProcessTapDescription& description,
                                           AudioObjectID& tap) {
  const auto made = std::make_shared<AudioObjectID>(0);
  const auto outcome =
      call({.begin = [=, this] { return routes_.beginTap(*connection_, view, description, *made); },
            .poll = [=, this] { return routes_.tapOutcome(*made); },
            .undo = [=, this] { routes_.removeTap(view, *made); }});
  if (outcome.ok()) tap = *made;
  return outcome;
}

AudioOutcome AudioSystem::destroyProcessTap(RouteTable::View view, AudioObjectID tap) {
  return call({.begin = [=, this] { return routes_.removeTap(view, tap); }, .evenLate = true});
}

AudioOutcome AudioSystem::createAggregateDevice(RouteTable::View view,
                                                const AggregateDeviceDescription& description,
                                                AudioObjectID& device) {
  const auto made = std::make_shared<AudioObjectID>(0);
  const auto outcome = call({.begin = [=, this] { return routes_.beginAggregate(view, description, *made); },
                             .poll = [=, this] { return routes_.aggregateOutcome(*made); },
                             .undo = [=, this] { routes_.removeAggregate(view, *made); }});
  if (outcome.ok()) device = *made;
  return outcome;
}

AudioOutcome AudioSystem::destroyAggregateDevice(RouteTable::View view, AudioObjectID device) {
  return call({.begin = [=, this] { return routes_.removeAggregate(view, device); }, .evenLate = true});
}

AudioOutcome AudioSystem::createIOProc(RouteTable::View view, AudioObjectID device, AudioIOBlock block,
                                       AudioIOProcID& procedure) {
  const auto made = std::make_shared<AudioIOProcID>(0);
  const bool empty = !block;
  auto owned = std::make_shared<StoppableBlock>(std::move(block));
  const std::weak_ptr<StoppableBlock> watched = owned;
  AudioIOBlock running;
  if (!empty) {
    running = [owned = std::move(owned)](const MonitorAudioBufferList* input,
                                         MonitorAudioBufferList* output) { owned->run(input, output); };
  }
  // Handed on, not copied: whoever destroys the procedure destroys the block.
  const auto outcome = call({.begin =
                                 [=, this, running = std::move(running)]() mutable {
                                   return routes_.addProcedure(view, device, std::move(running), *made);
                                 },
                             .undo = [=, this] { routes_.removeProcedure(view, device, *made); }});
  if (!outcome.ok()) return outcome;
  procedure = *made;
  const std::lock_guard lock{blocksMutex_};
  blocks_.insert_or_assign(procedure, Block{view, watched});
  return outcome;
}

AudioOutcome AudioSystem::destroyIOProc(RouteTable::View view, AudioObjectID device,
                                        AudioIOProcID procedure) {
  const auto outcome = call(
      {.begin = [=, this] { return routes_.removeProcedure(view, device, procedure); }, .evenLate = true});
  forgetBlock(view, procedure, outcome.ok());
  return outcome;
}

void AudioSystem::forgetBlock(RouteTable::View view, AudioIOProcID procedure, bool destroyed) {
  std::shared_ptr<StoppableBlock> block;
  {
    const std::lock_guard lock{blocksMutex_};
    const auto entry = blocks_.find(procedure);
    if (entry == blocks_.end() || entry->second.view != view) return;
    block = entry->second.block.lock();
    blocks_.erase(entry);
  }
  if (!destroyed && block != nullptr) block->stop();
}

void AudioSystem::forgetBlocks(RouteTable::View view) {
  std::vector<AudioIOProcID> procedures;
  {
    const std::lock_guard lock{blocksMutex_};
    for (const auto& [procedure, block] : blocks_) {
      if (block.view == view) procedures.push_back(procedure);
    }
  }
  for (const AudioIOProcID procedure : procedures) forgetBlock(view, procedure, false);
}

AudioOutcome AudioSystem::startDevice(RouteTable::View view, AudioObjectID device, AudioIOProcID procedure) {
  return call({.begin = [=, this] { return routes_.beginStart(view, device, procedure); },
               .poll = [=, this] { return routes_.startOutcome(device); },
               .undo = [=, this] { routes_.finishStop(device); }});
}

AudioOutcome AudioSystem::stopDevice(RouteTable::View view, AudioObjectID device, AudioIOProcID procedure) {
  return call({.begin = [=, this] { return routes_.beginStop(view, device, procedure); },
               .poll = [=, this]() -> std::optional<AudioOutcome> {
                 if (!routes_.stopOutcome(device)) return std::nullopt;
                 return routes_.finishStop(device);
               },
               // The caller may rely on the stop whatever its outcome.
               .undo = [=, this] { routes_.finishStop(device); },
               .evenLate = true});
}

void AudioSystem::closeView(RouteTable::View view) {
  listeners_.removeView(view);
  // Without a connection nothing was made, or it goes with the last one: nothing to wait for.
  if (published_.current()->state == PipeWireConnection::State::Ready) {
    call({.begin =
              [=, this] {
                routes_.beginClose(view);
                return AudioOutcome{};
              },
          .poll = [=, this]() -> std::optional<AudioOutcome> {
            if (!routes_.closeOutcome(view)) return std::nullopt;
            routes_.finishClose(view);
            return AudioOutcome{};
          },
          .undo = [=, this] { routes_.finishClose(view); },
          .evenLate = true});
  }
  forgetBlocks(view);
}

}  // namespace monitor::platform
