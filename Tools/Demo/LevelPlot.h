// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

#include "Tools/Demo/Demonstration.h"

namespace monitor::demo {

// Draws the level of both programs over the whole recording, with the events, and a closer look at the
// takeover and at the kill, into a PNG file. lab::LabError when it cannot be written.
void drawLevels(const Demonstration& demonstration, const std::filesystem::path& file);

}  // namespace monitor::demo
