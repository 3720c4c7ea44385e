// SPDX-License-Identifier: MIT
#include "MonitorMac/NativeAudioActivity.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <utility>

#include "MonitorMac/MonitorPlatform.h"
#include "MonitorMac/ProcessIdentity.h"

namespace monitor {
namespace {

constexpr std::uint32_t kMostListBytes = 1'000'000;

std::vector<AudioObjectID> processObjects(AudioHardware& hardware) {
  std::uint32_t size = 0;
  if (hardware.propertyDataSize(audio::kSystemObject, audio::kProcessObjectList, size) != 0 ||
      size > kMostListBytes) {
    throw NativeAudioActivity::AudioActivityError();
  }
  std::vector<AudioObjectID> objects(size / sizeof(AudioObjectID));
  if (objects.empty()) return objects;
  if (hardware.propertyData(audio::kSystemObject, audio::kProcessObjectList,
                            std::as_writable_bytes(std::span(objects)), size) != 0) {
    throw NativeAudioActivity::AudioActivityError();
  }
  // The list may have become shorter since its size was asked for.
  objects.resize(std::min(objects.size(), size / sizeof(AudioObjectID)));
  return objects;
}

// A 32-bit property; nothing when it cannot be read.
template <class T>
std::optional<T> read(AudioHardware& hardware, AudioObjectID object, const AudioObjectAddress& address) {
  T value{};
  std::uint32_t size = 0;
  if (hardware.propertyData(object, address, std::as_writable_bytes(std::span(&value, 1)), size) != 0 ||
      size != sizeof value) {
    return std::nullopt;
  }
  return value;
}

// The process behind an object, when it sounds and is another one of this user.
std::optional<ProcessIdentity> soundingProcess(const NativeAudioActivity::Ports& ports,
                                               AudioObjectID object) {
  if (read<std::uint32_t>(ports.hardware, object, audio::kProcessIsRunningOutput) != 1U) return std::nullopt;
  const auto pid = read<std::int32_t>(ports.hardware, object, audio::kProcessPID);
  if (!pid || *pid < 0 || *pid == ports.system.processIdentifier()) return std::nullopt;
  const auto info = processInfo(ports.processes, *pid);
  if (!info || info->owner != ports.system.userIdentifier()) return std::nullopt;
  return info;
}

ActiveAudioApplication describe(const NativeAudioActivity::Ports& ports, const ProcessKey& key) {
  const std::string path = executable(ports.processes, key.pid);
  ActiveAudioApplication application{fallbackIdentity(key), path.substr(path.rfind('/') + 1), std::nullopt};
  const auto bundle = ports.bundles.bundleOfProcess(key.pid, path);
  if (!bundle) return application;
  application.bundleURL = bundle->path;
  if (bundle->identifier) application.id = *bundle->identifier;
  if (bundle->displayName) {
    application.name = *bundle->displayName;
  } else if (bundle->name) {
    application.name = *bundle->name;
  }
  return application;
}

}  // namespace

std::vector<ActiveAudioApplication> NativeAudioActivity::snapshot(const Ports& ports) {
  if (!MonitorPlatform::supportsAudio(ports.system)) return {};
  std::map<std::string, ActiveAudioApplication> byID;
  for (const AudioObjectID object : processObjects(ports.hardware)) {
    const auto process = soundingProcess(ports, object);
    if (!process) continue;
    auto application = describe(ports, process->key);
    byID.insert_or_assign(application.id, std::move(application));
  }
  std::vector<ActiveAudioApplication> list;
  for (auto& [id, application] : byID) list.push_back(std::move(application));
  std::sort(list.begin(), list.end(), [&ports](const auto& left, const auto& right) {
    if (ports.order.precedes(left.name, right.name)) return true;
    if (ports.order.precedes(right.name, left.name)) return false;
    return left.id < right.id;
  });
  return list;
}

}  // namespace monitor
