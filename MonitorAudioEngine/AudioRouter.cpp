// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/AudioRouter.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <utility>

#include <fmt/format.h>

#include "MonitorAudioEngine/AudioProperties.h"
#include "MonitorAudioEngine/AudioRouteError.h"
#include "MonitorCore/MonitorError.h"
#include "MonitorCore/Utf8.h"
#include "MonitorMac/ProcessIdentity.h"

namespace monitor {
namespace {

bool precedes(const ProcessKey& left, const ProcessKey& right) {
  return left.pid != right.pid ? left.pid < right.pid : left.start < right.start;
}
bool precedes(AudioObjectID left, AudioObjectID right) {
  return left < right;
}

// The elements as a set: sorted, each once.
template <class Element>
std::vector<Element> asSet(std::vector<Element> elements) {
  std::sort(elements.begin(), elements.end(),
            [](const auto& left, const auto& right) { return precedes(left, right); });
  elements.erase(std::unique(elements.begin(), elements.end()), elements.end());
  return elements;
}

template <class Element>
bool areSameSets(const std::vector<Element>& left, const std::vector<Element>& right) {
  return left == right || asSet(left) == asSet(right);
}

bool fits(const ProcessAudioRoute& route, const ListedApplication& application) {
  return areSameSets(route.keys(), application.application.processes) &&
         areSameSets(route.objects(), application.objects);
}

void requireRange(double gain, const std::vector<ProcessKey>& keys) {
  if (!std::isfinite(gain) || gain < 0.0 || gain > 1.0) {
    throw AudioRouteError::changedProcess(fmt::format("the gain is {}, expected 0.0 to 1.0", gain));
  }
  if (keys.empty() || keys.size() > AudioRouter::kMostKeys) {
    throw AudioRouteError::changedProcess(
        fmt::format("{} processes were given, expected 1 to {}", keys.size(), AudioRouter::kMostKeys));
  }
}

// Why no application has exactly these processes.
std::string describeMismatch(const std::vector<ProcessKey>& keys,
                             const std::vector<ListedApplication>& list) {
  std::unordered_map<ProcessKey, const ListedApplication*> owners;
  for (const ListedApplication& entry : list) {
    for (const ProcessKey& key : entry.application.processes) owners.emplace(key, &entry);
  }
  const ListedApplication* owner = nullptr;
  for (const ProcessKey& key : keys) {
    const auto found = owners.find(key);
    if (found == owners.end())
      return fmt::format("process {} is in no program that uses audio now", key.id());
    if (owner == nullptr) owner = found->second;
    if (owner != found->second) {
      return fmt::format("process {} is in \"{}\", process {} in \"{}\"", keys.front().id(),
                         owner->application.id, key.id(), found->second->application.id);
    }
  }
  const auto given = asSet(keys);
  for (const ProcessKey& key : owner->application.processes) {
    if (!std::binary_search(given.begin(), given.end(), key,
                            [](const auto& left, const auto& right) { return precedes(left, right); })) {
      return fmt::format("\"{}\" has process {} too", owner->application.id, key.id());
    }
  }
  return {};
}

const ListedApplication& find(const std::vector<ListedApplication>& list,
                              const std::vector<ProcessKey>& keys) {
  const auto wanted = asSet(keys);
  const auto found = std::find_if(list.begin(), list.end(), [&](const ListedApplication& entry) {
    return asSet(entry.application.processes) == wanted;
  });
  if (found == list.end()) throw AudioRouteError::changedProcess(describeMismatch(keys, list));
  return *found;
}

}  // namespace

// The deleter of the last reference, wherever that was dropped.
void AudioRouter::endOnItsQueue(AudioRouter* router) {
  const auto queue = router->queue_;
  if (queue->isCurrent()) {
    delete router;
    return;
  }
  // Owned by the task: it goes with the task even where that never runs.
  queue->submit([owned = std::shared_ptr<AudioRouter>(router)]() mutable { owned.reset(); });
}

std::shared_ptr<AudioRouter> AudioRouter::make(AudioRouterPorts ports) {
  const std::shared_ptr<AudioRouter> router(new AudioRouter(std::move(ports)), endOnItsQueue);
  router->queue_->submit([weak = std::weak_ptr(router)] {
    if (const auto strong = weak.lock()) strong->start();
  });
  return router;
}

AudioRouter::AudioRouter(AudioRouterPorts ports)
    : queue_(ports.queues.makeSerialQueue(std::string(kQueueLabel), QualityOfService::UserInitiated)),
      ports_(std::move(ports)),
      lister_(*ports_.hardware, ports_.processes, ports_.bundles, ports_.system),
      clientHeartbeat_(ports_.clock.now()) {}

AudioRouter::~AudioRouter() {
  if (timer_) timer_->cancel();
  stop();
  stopListening(audio::kDefaultOutputDevice, outputListener_);
  stopListening(audio::kProcessObjectList, processListener_);
}

void AudioRouter::start() {
  timer_ = queue_->makeTimer(kTickSeconds, kTickSeconds, [weak = weak_from_this()] {
    if (const auto router = weak.lock()) router->tick();
  });
  timer_->resume();
  registerListeners();
}

// An audio system that is away refuses listeners, so that the timer asks again.
void AudioRouter::registerListeners() {
  listen(audio::kDefaultOutputDevice, &AudioRouter::outputChanged, outputListener_);
  listen(audio::kProcessObjectList, &AudioRouter::processesChanged, processListener_);
}

void AudioRouter::listen(const AudioObjectAddress& address, void (AudioRouter::*handler)(),
                         std::shared_ptr<const AudioPropertyListener>& listener) {
  if (listener) return;
  auto candidate = std::make_shared<const AudioPropertyListener>([weak = weak_from_this(), handler] {
    if (const auto router = weak.lock()) (router.get()->*handler)();
  });
  if (ports_.hardware->addPropertyListener(audio::kSystemObject, address, queue_, candidate) == 0) {
    listener = std::move(candidate);
  }
}

void AudioRouter::stopListening(const AudioObjectAddress& address,
                                std::shared_ptr<const AudioPropertyListener>& listener) {
  if (!listener) return;
  ports_.hardware->removePropertyListener(audio::kSystemObject, address, queue_, listener);
  listener.reset();
}

AudioRouter::Listing AudioRouter::applications() {
  clientHeartbeat_ = ports_.clock.now();
  try {
    Listing listing;
    for (ListedApplication& entry : listApplications()) {
      listing.applications.push_back(std::move(entry.application));
    }
    listing.message = lastError_;
    return listing;
  } catch (const std::exception& error) {
    noteCause(error);
    throw;
  }
}

void AudioRouter::setGain(double gain, const std::vector<ProcessKey>& keys) {
  clientHeartbeat_ = ports_.clock.now();
  try {
    applyGain(gain, keys);
  } catch (const std::exception& error) {
    noteCause(error);
    throw;
  }
}

void AudioRouter::stop() {
  ++generation_;
  recovery_.clear();
  // Taken out first, torn down by their release.
  const auto routes = std::exchange(routes_, {});
}

std::vector<ListedApplication> AudioRouter::listApplications() const {
  auto list = lister_.list();
  for (ListedApplication& entry : list) {
    const auto route = routes_.find(entry.application.id);
    if (route != routes_.end()) entry.application.gain = route->second->gain();
  }
  return list;
}

void AudioRouter::applyGain(double gain, const std::vector<ProcessKey>& keys) {
  requireRange(gain, keys);
  const auto list = listApplications();
  const ListedApplication& application = find(list, keys);
  const std::string& id = application.application.id;
  recovery_.remove(id);
  if (gain == 1.0) {
    routes_.erase(id);
    return;
  }
  const auto route = routes_.find(id);
  if (route != routes_.end() && fits(*route->second, application)) {
    route->second->setGain(gain);
    return;
  }
  routes_.erase(id);
  buildRoute(application, gain);
}

void AudioRouter::buildRoute(const ListedApplication& application, double gain) {
  const auto output =
      readValue<AudioObjectID>(*ports_.hardware, audio::kSystemObject, audio::kDefaultOutputDevice);
  if (output == 0) throw AudioRouteError::invalidFormat("there is no default output device");
  auto route = std::make_unique<ProcessAudioRoute>(*ports_.hardware, application.application.processes,
                                                   application.objects, output, ports_.makeUuid,
                                                   ports_.clock.now(), ports_.silence);
  route->setGain(gain);
  route->noteOutput(application.application.running, ports_.clock.now());
  const std::string& id = application.application.id;
  routes_.emplace(id, std::move(route));
  // While there was no route, nobody looked at who plays: without this the watchdog would wait for sound from
  // a program that is silent, or forgive a playing one that stalls at once.
  if (application.application.running) {
    playing_.insert(id);
  } else {
    playing_.erase(id);
  }
}

void AudioRouter::tick() {
  registerListeners();
  const double now = ports_.clock.now();
  if (now - clientHeartbeat_ > kHeartbeatSeconds) {
    stop();
    return;
  }
  for (auto entry = routes_.begin(); entry != routes_.end();) {
    ProcessAudioRoute& route = *entry->second;
    // A silent application is not expected to render.
    route.observe(playing_.contains(entry->first), now);
    const std::string& id = entry->first;
    if (const auto reason = reasonToEnd(route, now)) {
      keepMessage(AudioRouteError::timedOut(id + ": " + *reason));
    } else if (hearsOnlySilence(route, now)) {
      lastCause_ = {0, fmt::format("{}: the program reports output for {} s and every sample was zero", id,
                                   route.outputSeconds(now))};
      lastError_ = kOnlySilenceText;
    } else {
      ++entry;
      continue;
    }
    entry = routes_.erase(entry);
  }
}

bool AudioRouter::hearsOnlySilence(const ProcessAudioRoute& route, double now) const {
  return ports_.silence != nullptr && !ports_.silence->heardSound() &&
         route.outputSeconds(now) >= kOnlySilenceSeconds;
}

std::optional<std::string> AudioRouter::reasonToEnd(const ProcessAudioRoute& route, double now) const {
  if (route.failed()) return "the gain core was given buffers that do not fit";
  if (now - route.lastActivity() >= kStallSeconds) {
    return fmt::format("the program plays and nothing was rendered for {} s", now - route.lastActivity());
  }
  for (const ProcessKey& key : route.keys()) {
    const auto process = processInfo(ports_.processes, key.pid);
    if (!process || process->key != key) return fmt::format("process {} ended", key.id());
  }
  return std::nullopt;
}

void AudioRouter::outputChanged() {
  for (const auto& [id, route] : routes_) recovery_.remember(id, route->keys(), route->gain());
  routes_.clear();
  ++generation_;
  queue_->submitAfter(kRestoreSeconds, [weak = weak_from_this(), generation = generation_] {
    if (const auto router = weak.lock()) router->restore(generation);
  });
}

void AudioRouter::restore(std::uint64_t generation) {
  if (generation != generation_ || ports_.clock.now() - clientHeartbeat_ >= kHeartbeatSeconds) return;
  for (const auto& intent : recovery_.takePending())
    setGainAgain(intent.gain, intent.keys, "Output changed. ");
}

void AudioRouter::processesChanged() {
  if (routes_.empty()) return;
  std::vector<ListedApplication> list;
  try {
    list = listApplications();
  } catch (const std::exception& error) {
    stop();
    keepMessage(error);
    return;
  }
  std::unordered_map<std::string, const ListedApplication*> byID;
  playing_.clear();
  for (const ListedApplication& entry : list) {
    byID.emplace(entry.application.id, &entry);
    if (entry.application.running) playing_.insert(entry.application.id);
  }
  // All that changed ends before anything is built: a process that moved from one application to another can
  // be tapped only once its old route has let go of it.
  std::vector<AudioRouteRecovery::Intent> rebuilds;
  for (auto entry = routes_.begin(); entry != routes_.end();) {
    const auto found = byID.find(entry->first);
    if (found != byID.end() && fits(*entry->second, *found->second)) {
      entry->second->noteOutput(found->second->application.running, ports_.clock.now());
      ++entry;
      continue;
    }
    if (found != byID.end()) {
      rebuilds.push_back({found->second->application.processes, entry->second->gain()});
    }
    entry = routes_.erase(entry);
  }
  for (const auto& rebuild : rebuilds) setGainAgain(rebuild.gain, rebuild.keys, "Audio processes changed. ");
}

void AudioRouter::setGainAgain(double gain, const std::vector<ProcessKey>& keys, const char* prefix) {
  try {
    setGain(gain, keys);
  } catch (const std::exception& error) {
    keepMessage(error, prefix);
  }
}

void AudioRouter::noteCause(const std::exception& error) {
  if (const auto* route = dynamic_cast<const AudioRouteError*>(&error)) {
    lastCause_ = route->cause();
  } else if (const auto* platform = dynamic_cast<const MonitorError*>(&error)) {
    lastCause_ = {static_cast<AudioStatus>(platform->code()), platform->what()};
  } else {
    lastCause_ = {0, error.what()};
  }
  // Device names and the platform's words come from outside, and the text travels between processes.
  lastCause_.text = repairedUtf8(std::move(lastCause_.text));
}

void AudioRouter::keepMessage(const std::exception& error, const char* prefix) {
  noteCause(error);
  lastError_ = std::string(prefix) + error.what();
}

}  // namespace monitor
