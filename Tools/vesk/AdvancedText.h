// SPDX-License-Identifier: MIT
#pragma once

#include "MonitorCore/AdvancedSample.h"
#include "Tools/vesk/Console.h"

namespace monitor::vesk {

// The sample's status text, a table of its readings and one of its processes; tables without rows are left
// out.
void printAdvancedSample(const AdvancedSample& sample, const Console& console);

// One line: a JSON object with "sample", in the form of the helper's protocol, and "status", its status text.
void printAdvancedJson(const AdvancedSample& sample, const Console& console);

}  // namespace monitor::vesk
