// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

#include "MonitorCore/Ports/Time.h"
#include "Tools/vesk/Console.h"

namespace monitor::vesk {

// Runs work whose length nobody knows, and shows the seconds it has taken so far on a terminal. There the
// work runs on a thread of its own; what it throws is thrown here.
void runWithActivity(const Console& console, const Clock& clock, const std::string& label,
                     const std::function<void()>& work);

}  // namespace monitor::vesk
