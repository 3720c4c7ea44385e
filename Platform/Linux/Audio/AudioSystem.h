// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "Platform/Linux/Audio/AudioStatus.h"
#include "Platform/Linux/Audio/CallQueue.h"
#include "Platform/Linux/Audio/DeviceObjects.h"
#include "Platform/Linux/Audio/GraphModel.h"
#include "Platform/Linux/Audio/ListenerTable.h"
#include "Platform/Linux/Audio/LoopThread.h"
#include "Platform/Linux/Audio/ObjectTable.h"
#include "Platform/Linux/Audio/PipeWireConnection.h"
#include "Platform/Linux/Audio/ProcessObjects.h"
#include "Platform/Linux/Audio/ProcessSource.h"
#include "Platform/Linux/Audio/RouteTable.h"
#include "Platform/Linux/Audio/StoppableBlock.h"

namespace monitor::platform {

// One connection to the audio server and everything on it, shared by all views of this program. The graph and
// all objects live on one loop thread; reads are answered from a published table without going there.
class AudioSystem final : private PipeWireConnection::Observer {
 public:
  AudioSystem();
  ~AudioSystem() override;
  AudioSystem(const AudioSystem&) = delete;
  AudioSystem& operator=(const AudioSystem&) = delete;

  [[nodiscard]] const PublishedTable& table() const { return published_; }
  [[nodiscard]] ListenerTable& listeners() { return listeners_; }

  // The port's calls, each within a second. `view` is only compared.
  AudioOutcome createProcessTap(RouteTable::View view, const ProcessTapDescription& description,
                                AudioObjectID& tap);
  AudioOutcome destroyProcessTap(RouteTable::View view, AudioObjectID tap);
  AudioOutcome createAggregateDevice(RouteTable::View view, const AggregateDeviceDescription& description,
                                     AudioObjectID& device);
  AudioOutcome destroyAggregateDevice(RouteTable::View view, AudioObjectID device);
  AudioOutcome createIOProc(RouteTable::View view, AudioObjectID device, AudioIOBlock block,
                            AudioIOProcID& procedure);
  AudioOutcome destroyIOProc(RouteTable::View view, AudioObjectID device, AudioIOProcID procedure);
  AudioOutcome startDevice(RouteTable::View view, AudioObjectID device, AudioIOProcID procedure);
  AudioOutcome stopDevice(RouteTable::View view, AudioObjectID device, AudioIOProcID procedure);
  // Removes the view's listeners and everything it created.
  void closeView(RouteTable::View view);

 private:
  void graphChanged() override;
  void metadataWritten(GlobalID subject, const std::string& key,
                       const std::optional<MetadataValue>& value) override;
  void connectionLost() override;
  void stateChanged() override;

  // Runs the operation once the connection is there; fails at once when there is none.
  AudioOutcome call(CallQueue::Operation operation);
  void updateObjects();
  void updateRoutes();
  void watchProcesses();
  void processEnded(std::int32_t pid);
  void publish();
  // What is to be kept of a procedure's block besides the route: a way to stop it without the loop.
  void forgetBlock(RouteTable::View view, AudioIOProcID procedure, bool destroyed);
  void forgetBlocks(RouteTable::View view);
  void tellListeners(ObjectTable table);

  struct Block {
    RouteTable::View view = nullptr;
    std::weak_ptr<StoppableBlock> block;  // the route owns it
  };

  std::mutex blocksMutex_;
  std::map<AudioIOProcID, Block> blocks_;
  ListenerTable listeners_;
  PublishedTable published_;
  std::optional<ObjectTable>
      lastReady_;            // what listeners have been told of; nothing while there is no server
  bool owesReturn_ = false;  // somebody may have seen that there is no server
  ObjectIDs ids_;
  ProcProcessSource processSource_;
  GraphModel graph_;
  ProcessObjects processes_;
  DeviceObjects devices_;
  LoopThread thread_;
  LoopTimer wake_;
  CallQueue calls_;
  std::map<std::int32_t, std::unique_ptr<ProcessEndWatch>> watches_;
  std::unique_ptr<PipeWireConnection> connection_;
  RouteTable routes_;
  std::uint64_t metadataGeneration_ = 0;
};

// The properties that differ between two tables, in the order in which their listeners are told: the default
// output before the processes, because routes that wait for a new output are remembered, and those of a
// vanished process are not.
[[nodiscard]] std::vector<std::pair<AudioObjectID, AudioObjectAddress>> changedProperties(
    const ObjectTable& before, const ObjectTable& after);

}  // namespace monitor::platform
