// SPDX-License-Identifier: MIT
#pragma once

#import <dispatch/dispatch.h>

#include "MonitorCore/Ports/SerialQueue.h"

namespace monitor::platform {

// The dispatch queue under a queue of makeSerialQueueFactory() or mainQueue(). A queue of another make has none: a
// programming error that stops the program. For adapters; what callers include names no platform type.
[[nodiscard]] dispatch_queue_t _Nonnull dispatchQueueOf(const SerialQueue& queue);

}  // namespace monitor::platform
