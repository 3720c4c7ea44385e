// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "MonitorMac/NativeAudioActivity.h"
#include "Tools/vesk/Console.h"

namespace monitor::vesk {

// The programs that produce sound as a table, or as a JSON array of objects with id, name and (where known)
// bundleURL.
void printSounding(const std::vector<ActiveAudioApplication>& applications, bool json,
                   const Console& console);

}  // namespace monitor::vesk
