// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace monitor::platform {

// Whether the user sits at this machine right now: has an active session on one of its seats, as the login
// manager says it. True for root, and where there is no login manager: then the bus's policy alone decides.
[[nodiscard]] bool hasActiveLocalSession(std::uint32_t user);

}  // namespace monitor::platform
