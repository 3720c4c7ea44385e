// SPDX-License-Identifier: MIT
#include "MonitorAudioEngine/ApplicationLister.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <unordered_map>
#include <utility>

#include "MonitorAudioEngine/AudioProperties.h"
#include "MonitorCore/Utf8.h"
#include "MonitorMac/ProcessIdentity.h"

namespace monitor {
namespace {

// A property of one process; nothing when it cannot be read, for which a whole list must not fail.
template <class Value>
std::optional<Value> tryRead(AudioHardware& hardware, AudioObjectID object,
                             const AudioObjectAddress& address) {
  Value value{};
  std::uint32_t size = 0;
  const auto bytes = std::as_writable_bytes(std::span(&value, 1));
  if (hardware.propertyData(object, address, bytes, size) != 0) return std::nullopt;
  return value;
}

std::optional<std::string> textOrNothing(std::optional<std::string> text) {
  if (!text || text->empty()) return std::nullopt;
  return repairedUtf8(std::move(*text));
}

std::string lastComponent(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

// Bundle texts come from outside; one that is not UTF-8 must not cost the client the whole list.
std::string nameOf(std::optional<ApplicationBundle>& bundle, const std::string& path) {
  if (bundle && bundle->displayName) return repairedUtf8(std::move(*bundle->displayName));
  if (bundle && bundle->name) return repairedUtf8(std::move(*bundle->name));
  return lastComponent(path);
}

}  // namespace

ApplicationLister::ApplicationLister(AudioHardware& hardware, ProcessTable& processes,
                                     ApplicationBundles& bundles, const SystemInformation& system)
    : hardware_(hardware), processes_(processes), bundles_(bundles), system_(system) {}

std::optional<AudioApplication> ApplicationLister::describe(AudioObjectID object, bool& unreadable) const {
  const auto pid = tryRead<std::int32_t>(hardware_, object, audio::kProcessPID);
  unreadable |= !pid.has_value();
  if (!pid || *pid == system_.processIdentifier()) return std::nullopt;
  const auto process = processInfo(processes_, *pid);
  if (!process || process->owner != system_.userIdentifier()) return std::nullopt;

  AudioApplication application;
  application.processes = {process->key};
  const auto running = tryRead<std::uint32_t>(hardware_, object, audio::kProcessIsRunningOutput);
  unreadable |= !running.has_value();
  application.running = running == 1U;
  const std::string path = executable(processes_, *pid);
  auto bundle = bundles_.bundleOfProcess(*pid, path);
  if (bundle) application.bundleID = textOrNothing(std::move(bundle->identifier));
  if (!application.bundleID) {
    std::optional<std::string> text;
    const AudioStatus status = hardware_.propertyString(object, audio::kProcessBundleID, text);
    unreadable |= status != 0;
    if (status == 0) application.bundleID = textOrNothing(std::move(text));
  }
  application.id = application.bundleID.value_or(fallbackIdentity(process->key));
  application.name = nameOf(bundle, path);
  return application;
}

std::vector<ListedApplication> ApplicationLister::list() const {
  std::vector<ListedApplication> list;
  std::unordered_map<std::string, std::size_t> places;
  bool unreadable = false;
  for (const AudioObjectID object :
       readObjectList(hardware_, audio::kSystemObject, audio::kProcessObjectList)) {
    auto found = describe(object, unreadable);
    if (!found) continue;
    const auto [place, isNew] = places.try_emplace(found->id, list.size());
    if (isNew) {
      list.push_back({std::move(*found), {object}});
      continue;
    }
    ListedApplication& known = list[place->second];
    known.application.processes.push_back(found->processes.front());
    known.application.running |= found->running;
    known.objects.push_back(object);
  }
  if (unreadable) {
    // One process that left, or the whole audio system? An empty list must not pass for the truth.
    std::uint32_t size = 0;
    checkAudio(hardware_, hardware_.propertyDataSize(audio::kSystemObject, audio::kProcessObjectList, size));
  }
  return list;
}

}  // namespace monitor
