// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "MonitorCore/Ports/AudioHardware.h"
#include "Platform/Linux/Audio/AudioStatus.h"
#include "Platform/Linux/Audio/DeviceObjects.h"
#include "Platform/Linux/Audio/GraphModel.h"
#include "Platform/Linux/Audio/PipeWireConnection.h"
#include "Platform/Linux/Audio/ProcessObjects.h"
#include "Platform/Linux/Audio/TakeoverRegistry.h"
#include "Platform/Linux/Audio/TapRoute.h"

namespace monitor::platform {

// The process taps, aggregate devices and I/O procedures of all views. A tap owns a route; an aggregate
// device and a procedure only stand for a state of it. Calls that have to wait for the server are begun here
// and then asked for their outcome after every change. Loop thread only.
class RouteTable {
 public:
  // A view is only compared. Objects of one view do not exist for another one.
  using View = const void*;
  using Pending = std::optional<AudioOutcome>;  // nothing: not yet

  // `changed` is called, from inside events, when update() is due.
  RouteTable(const GraphModel& graph, const ProcessObjects& processes, const DeviceObjects& devices,
             ObjectIDs& ids, std::function<void()> changed);
  ~RouteTable();

  // A failure leaves nothing behind; after success the tap exists until removeTap().
  AudioOutcome beginTap(PipeWireConnection& connection, View view, const ProcessTapDescription& description,
                        AudioObjectID& tap);
  [[nodiscard]] Pending tapOutcome(AudioObjectID tap) const;
  AudioOutcome removeTap(View view, AudioObjectID tap);

  AudioOutcome beginAggregate(View view, const AggregateDeviceDescription& description,
                              AudioObjectID& device);
  [[nodiscard]] Pending aggregateOutcome(AudioObjectID device) const;
  AudioOutcome removeAggregate(View view, AudioObjectID device);

  AudioOutcome addProcedure(View view, AudioObjectID device, AudioIOBlock block, AudioIOProcID& procedure);
  // After success the block is never entered again.
  AudioOutcome removeProcedure(View view, AudioObjectID device, AudioIOProcID procedure);

  AudioOutcome beginStart(View view, AudioObjectID device, AudioIOProcID procedure);
  [[nodiscard]] Pending startOutcome(AudioObjectID device) const;
  // The streams get their direct paths back; finishStop() ends the route's own sound.
  AudioOutcome beginStop(View view, AudioObjectID device, AudioIOProcID procedure);
  [[nodiscard]] Pending stopOutcome(AudioObjectID device) const;
  AudioOutcome finishStop(AudioObjectID device);

  // Everything of one view.
  void beginClose(View view);
  [[nodiscard]] Pending closeOutcome(View view) const;
  void finishClose(View view);

  // The graph changed, or nextWake() has come.
  void update(double now);
  [[nodiscard]] std::optional<double> nextWake() const;
  void metadataWritten(GlobalID subject, const std::string& key, const std::optional<MetadataValue>& value,
                       double now);
  void metadataReplaced();
  // Gives back the streams that an earlier service, killed, has left on a parking node that is gone.
  void sweepStale(PipeWireConnection& connection);
  // The connection was lost: every tap, device and procedure is gone.
  void clear();

  [[nodiscard]] std::map<AudioObjectID, AudioStreamFormat> tapFormats() const;
  [[nodiscard]] std::map<AudioObjectID, std::string> aggregateUIDs() const;

 private:
  struct Tap {
    View view = nullptr;
    std::string uuid;
    std::string deviceUID;
    std::vector<AudioObjectID> processes;
    AudioStreamFormat format;
    std::unique_ptr<TapRoute> route;
  };
  struct Aggregate {
    View view = nullptr;
    std::string uid;
    AudioObjectID tap = 0;
    std::map<AudioIOProcID, std::shared_ptr<const AudioIOBlock>> procedures;
    AudioIOProcID started = 0;
  };

  AudioOutcome checkTap(const ProcessTapDescription& description) const;
  AudioOutcome makeRoute(PipeWireConnection& connection, AudioObjectID id, Tap& tap,
                         const ProcessTapDescription& description);
  [[nodiscard]] std::vector<GlobalID> streamsOf(const std::vector<AudioObjectID>& processes) const;
  [[nodiscard]] bool sounding(const std::vector<AudioObjectID>& processes) const;
  void updateRoute(Tap& tap, double now);
  Aggregate* aggregate(View view, AudioObjectID device);
  [[nodiscard]] const Aggregate* aggregate(AudioObjectID device) const;
  [[nodiscard]] TapRoute* routeOf(const Aggregate& aggregate) const;
  static AudioOutcome noSuchDevice(AudioObjectID device);
  static AudioOutcome noSuchProcedure(AudioIOProcID procedure);

  const GraphModel& graph_;
  const ProcessObjects& processes_;
  const DeviceObjects& devices_;
  ObjectIDs& ids_;
  std::function<void()> changed_;
  TakeoverRegistry takeover_;
  std::map<AudioObjectID, Tap> taps_;
  std::map<AudioObjectID, Aggregate> aggregates_;
  AudioIOProcID lastProcedure_ = 0;
  std::uint64_t routes_ = 0;
};

}  // namespace monitor::platform
