// SPDX-License-Identifier: MIT
#pragma once

#include "MonitorAudioEngine/ProcessAudioRoute.h"
#include "MonitorAudioEngine/SilenceWatch.h"
#include "MonitorCore/Ports/ApplicationBundles.h"
#include "MonitorCore/Ports/AudioHardware.h"
#include "MonitorCore/Ports/ProcessTable.h"
#include "MonitorCore/Ports/SerialQueue.h"
#include "MonitorCore/Ports/SystemInformation.h"
#include "MonitorCore/Ports/Time.h"

namespace monitor {

// The platform as the audio service needs it. Everything outlives the service's last session; everything is
// used from the queues of all sessions at once, the process table and the bundles included.
struct AudioServicePorts {
  AudioHardwareProvider& hardware;
  SerialQueueFactory& queues;
  const Clock& clock;  // monotonic; stands still during suspend
  ProcessTable& processes;
  ApplicationBundles& bundles;
  const SystemInformation& system;
  UuidSource makeUuid;
  // Where a denied permission gives silence instead of an error; null elsewhere.
  SilenceWatch* silence = nullptr;
};

}  // namespace monitor
