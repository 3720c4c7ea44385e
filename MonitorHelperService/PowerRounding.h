// SPDX-License-Identifier: MIT
#pragma once

#include "MonitorCore/AdvancedSample.h"

namespace monitor {

// Rounds every reading in watts to a tenth. Fine power figures tell a patient reader what the processor
// computes, keys of other users' programs included; a tenth of a watt over a second tells people all they
// want to know.
void roundWatts(AdvancedSample& sample);

}  // namespace monitor
