// SPDX-License-Identifier: MIT
#pragma once

namespace monitor::platform {

// Assembles the audio service from this system's adapters and runs it until it leaves: its exit status.
// Called once, by main(), before any other thread exists.
[[nodiscard]] int audioServiceMain();

}  // namespace monitor::platform
