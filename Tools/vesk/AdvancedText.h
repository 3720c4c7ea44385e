// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "MonitorCore/AdvancedSample.h"
#include "Tools/vesk/Console.h"

namespace monitor::vesk {

// What a process is called; empty when that is not known.
using ProcessNames = std::function<std::string(std::int32_t pid)>;

// The sample's status text, a table of its readings and one of its processes, the one with most energy first;
// tables without rows are left out. With `names` the processes have names, and those without any activity are
// only counted.
void printAdvancedSample(const AdvancedSample& sample, const Console& console,
                         const ProcessNames& names = {});

// One line: a JSON object with "sample", in the form of the helper's protocol, and "status", its status text.
void printAdvancedJson(const AdvancedSample& sample, const Console& console);

}  // namespace monitor::vesk
