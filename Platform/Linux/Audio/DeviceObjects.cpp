// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/DeviceObjects.h"

namespace monitor::platform {

namespace {

constexpr std::uint32_t kPacked = 8;
constexpr std::uint32_t kNonInterleaved = 32;
constexpr std::uint32_t kSampleBytes = 4;

}  // namespace

AudioStreamFormat graphFormat(double rate, std::size_t channels) {
  AudioStreamFormat format;
  format.sampleRate = rate;
  format.formatID = audio::kFormatLinearPCM;
  format.formatFlags = audio::kFormatFlagIsFloat | kPacked | kNonInterleaved;
  format.bytesPerPacket = kSampleBytes;
  format.framesPerPacket = 1;
  format.bytesPerFrame = kSampleBytes;
  format.channelsPerFrame = static_cast<std::uint32_t>(channels);
  format.bitsPerChannel = kSampleBytes * 8;
  return format;
}

bool DeviceObjects::update(const GraphModel& graph) {
  const auto previous = objects_;
  const AudioObjectID previousDefault = defaultDevice_;
  std::map<Incarnation, AudioObjectID> known;
  for (const auto& [id, device] : objects_) known.emplace(device.incarnation, id);

  objects_.clear();
  defaultDevice_ = 0;
  const auto defaultSink = graph.defaultSink();
  for (const auto& [nodeID, node] : graph.nodes()) {
    if (!isSink(node)) continue;
    const auto entry = known.find(node.incarnation);
    const AudioObjectID id = entry == known.end() ? ids_.next() : entry->second;
    objects_.emplace(
        id, DeviceObject{nodeID, node.incarnation, std::string{propertyText(node.properties, "node.name")},
                         graphFormat(graph.rate(), graph.portsOf(nodeID, PortDirection::Input).size())});
    if (defaultSink == nodeID) defaultDevice_ = id;
  }
  return objects_ != previous || defaultDevice_ != previousDefault;
}

void DeviceObjects::clear() {
  objects_.clear();
  defaultDevice_ = 0;
}

const DeviceObject* DeviceObjects::object(AudioObjectID id) const {
  const auto found = objects_.find(id);
  return found == objects_.end() ? nullptr : &found->second;
}

std::optional<AudioObjectID> DeviceObjects::withUID(std::string_view uid) const {
  for (const auto& [id, device] : objects_) {
    if (device.uid == uid) return id;
  }
  return std::nullopt;
}

}  // namespace monitor::platform
