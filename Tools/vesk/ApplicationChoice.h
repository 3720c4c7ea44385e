// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "MonitorCore/AudioApplication.h"

namespace monitor::vesk {

// The one application of `list` that `text` names. Tried in this order, the first kind that finds any
// decides: its id or bundle identifier; the pid of one of its processes; its name, id or bundle identifier
// without regard to case; the start of its name. Throws CommandError (NoMatch) with the candidates, one a
// line, where that is none or several; `kind` says in the text what the list holds ("program that plays
// audio").
[[nodiscard]] const AudioApplication& chooseApplication(const std::vector<AudioApplication>& list,
                                                        std::string_view text, std::string_view kind);

}  // namespace monitor::vesk
