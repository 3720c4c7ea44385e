// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "MonitorCore/Ports/ApplicationBundles.h"
#include "MonitorCore/Ports/AudioHardware.h"
#include "Platform/Linux/Audio/AudioStatus.h"
#include "Platform/Linux/Audio/AudioSystem.h"

namespace monitor::platform {

// One client's view of an AudioSystem. Threads as the port says; lastFailure() from any thread.
class PipeWireAudioHardware final : public AudioHardware {
 public:
  PipeWireAudioHardware(std::shared_ptr<AudioSystem> system, std::shared_ptr<ApplicationBundles> bundles);
  ~PipeWireAudioHardware() override;

  AudioStatus propertyDataSize(AudioObjectID object, const AudioObjectAddress& address,
                               std::uint32_t& size) override;
  AudioStatus propertyData(AudioObjectID object, const AudioObjectAddress& address, std::span<std::byte> data,
                           std::uint32_t& size) override;
  AudioStatus propertyString(AudioObjectID object, const AudioObjectAddress& address,
                             std::optional<std::string>& value) override;
  AudioStatus addPropertyListener(AudioObjectID object, const AudioObjectAddress& address,
                                  std::shared_ptr<SerialQueue> queue,
                                  std::shared_ptr<const AudioPropertyListener> listener) override;
  AudioStatus removePropertyListener(AudioObjectID object, const AudioObjectAddress& address,
                                     const std::shared_ptr<SerialQueue>& queue,
                                     const std::shared_ptr<const AudioPropertyListener>& listener) override;
  AudioStatus createProcessTap(const ProcessTapDescription& description, AudioObjectID& tap) override;
  AudioStatus destroyProcessTap(AudioObjectID tap) override;
  AudioStatus createAggregateDevice(const AggregateDeviceDescription& description,
                                    AudioObjectID& device) override;
  AudioStatus destroyAggregateDevice(AudioObjectID device) override;
  AudioStatus createIOProc(AudioObjectID device, AudioIOBlock block, AudioIOProcID& procedure) override;
  AudioStatus destroyIOProc(AudioObjectID device, AudioIOProcID procedure) override;
  AudioStatus startDevice(AudioObjectID device, AudioIOProcID procedure) override;
  AudioStatus stopDevice(AudioObjectID device, AudioIOProcID procedure) override;
  AudioFailure lastFailure() const override;

 private:
  // Keeps the outcome of a call as the last failure, unless it is a success.
  AudioStatus conclude(const AudioOutcome& outcome);
  [[nodiscard]] AudioOutcome readTable(PublishedTable::Table& table, AudioObjectID object,
                                       const AudioObjectAddress& address) const;

  std::shared_ptr<AudioSystem> system_;
  std::shared_ptr<ApplicationBundles> bundles_;
  mutable std::mutex failureMutex_;
  AudioFailure failure_;
};

}  // namespace monitor::platform
