// SPDX-License-Identifier: MIT
#pragma once

#include "Tools/vesk/Console.h"
#include "Tools/vesk/ExitCode.h"
#include "Tools/vesk/Top/TopFeed.h"
#include "Tools/vesk/Top/TopState.h"

namespace monitor::vesk {

// Shows what `look` finds until the user quits, on the terminal of these two descriptors. Throws CommandError
// (Usage) where they are no terminal that can show it.
ExitCode runTop(TopState state, TopFeed::Look look, int input, int output, const Console& console);

}  // namespace monitor::vesk
