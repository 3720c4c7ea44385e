// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "MonitorCore/Ports/AudioHardware.h"
#include "Platform/Linux/Audio/GraphModel.h"
#include "Platform/Linux/Audio/ProcessObjects.h"

namespace monitor::platform {

// One output device: a sink of the graph.
struct DeviceObject {
  GlobalID node = kNoGlobal;
  Incarnation incarnation = 0;
  std::string uid;  // the sink's node name, which stays the same over reconnects
  AudioStreamFormat format;

  friend bool operator==(const DeviceObject&, const DeviceObject&) = default;
};

// The output devices and which of them is the default one. One thread.
class DeviceObjects {
 public:
  explicit DeviceObjects(ObjectIDs& ids) : ids_(ids) {}

  // Brings the objects up to date with the graph. Whether anything changed.
  bool update(const GraphModel& graph);
  void clear();

  [[nodiscard]] const std::map<AudioObjectID, DeviceObject>& objects() const { return objects_; }
  [[nodiscard]] const DeviceObject* object(AudioObjectID id) const;
  [[nodiscard]] std::optional<AudioObjectID> withUID(std::string_view uid) const;
  // 0 when there is none.
  [[nodiscard]] AudioObjectID defaultDevice() const { return defaultDevice_; }

 private:
  ObjectIDs& ids_;
  std::map<AudioObjectID, DeviceObject> objects_;
  AudioObjectID defaultDevice_ = 0;
};

// The shape of sound on the graph's side of a device: 32-bit float at the graph's rate, a buffer for each
// channel, whatever the hardware behind it takes.
[[nodiscard]] AudioStreamFormat graphFormat(double rate, std::size_t channels);

}  // namespace monitor::platform
