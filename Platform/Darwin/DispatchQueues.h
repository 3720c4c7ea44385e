// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include <dispatch/dispatch.h>

#include "MonitorCore/Ports/SerialQueue.h"

namespace monitor::platform {

// Serial dispatch queues: no attributes but the quality of service, autorelease frequency inherited.
[[nodiscard]] std::shared_ptr<SerialQueueFactory> makeSerialQueueFactory();

// The process's main queue.
[[nodiscard]] std::shared_ptr<SerialQueue> mainQueue();

// The dispatch queue under a queue made here. A queue of another make has none: a programming error that stops the
// program.
[[nodiscard]] dispatch_queue_t _Nonnull dispatchQueueOf(const SerialQueue& queue);

}  // namespace monitor::platform
