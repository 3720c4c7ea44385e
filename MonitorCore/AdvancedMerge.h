// SPDX-License-Identifier: MIT
#pragma once

#include "MonitorCore/AdvancedSample.h"
#include "MonitorCore/MonitorSnapshot.h"

namespace monitor {

// Puts what the privileged helper measured into a snapshot: its readings beside the collector's own, the
// network and energy figures of its processes into theirs (told apart as underKnownKeys() does) and into the
// sums of their apps, and the time and length of its interval. Pure; any thread.
void mergeAdvanced(MonitorSnapshot& snapshot, const AdvancedSample& sample);

}  // namespace monitor
