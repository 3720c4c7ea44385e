// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "MonitorCore/Ports/AudioHardware.h"
#include "Platform/Linux/Audio/GraphModel.h"

namespace monitor::platform {

// What this program has taken over, whichever client asked for it: which tap holds which process, and where
// the user wanted the streams whose targets are ours at the moment. One for each service process; one thread.
class TakeoverRegistry {
 public:
  // Holds the processes for a tap. Nothing is held when one of them has a holder already: false.
  bool claim(AudioObjectID tap, const std::vector<AudioObjectID>& processes);
  void release(AudioObjectID tap);

  // The stream is about to be parked: the wish that the metadata holds now is kept until it is given back.
  void park(const GraphModel& graph, GlobalID stream);
  void giveBack(const GraphModel& graph, GlobalID stream);
  // Somebody wrote or removed the stream's "target.object". Our own parking names are nobody's wish.
  void targetWritten(const GraphModel& graph, GlobalID stream, const std::optional<MetadataValue>& value);
  // The user's own "target.object"; nothing when the user has set none.
  [[nodiscard]] std::optional<MetadataValue> userTarget(const GraphModel& graph, GlobalID stream) const;
  // What gives the stream back: the user's "target.object"; else the node in "target.node", by its serial,
  // which makes the session manager store that preference again; else nothing.
  [[nodiscard]] std::optional<MetadataValue> targetToRestore(const GraphModel& graph, GlobalID stream) const;
  // A parking node other than that of this name holds the stream.
  [[nodiscard]] static bool isParkedByOthers(const GraphModel& graph, GlobalID stream,
                                             std::string_view ownParkingName);
  // Streams that point at a parking node which is not there: what a killed service left behind.
  [[nodiscard]] static std::vector<GlobalID> staleStreams(const GraphModel& graph);

  // Forgets streams that have gone.
  void prune(const GraphModel& graph);
  // The connection was lost: no stream and no tap is left.
  void clear();

 private:
  struct Kept {
    std::optional<MetadataValue> wish;
    bool givenBack = false;  // the metadata still shows our name until the server has answered
  };

  std::map<AudioObjectID, AudioObjectID> holders_;  // process to tap
  std::map<Incarnation, Kept> kept_;                // of parked streams
};

}  // namespace monitor::platform
