// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorCore/Ports/SerialQueue.h"

namespace monitor::platform {

// Serial dispatch queues: no attributes but the quality of service, autorelease frequency inherited.
[[nodiscard]] std::shared_ptr<SerialQueueFactory> makeSerialQueueFactory();

// The process's main queue.
[[nodiscard]] std::shared_ptr<SerialQueue> mainQueue();

}  // namespace monitor::platform
