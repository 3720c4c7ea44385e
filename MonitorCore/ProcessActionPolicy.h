// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

#include "MonitorCore/ProcessKey.h"

namespace monitor::ProcessActionPolicy {

// Whether the user may stop the process `expected`: it belongs to the user (never to the superuser), still is
// the process that was chosen (`current` is the one that has its pid now), and is neither pid 0 or 1 nor the
// program itself.
[[nodiscard]] bool canStop(const ProcessKey& expected, const std::optional<ProcessKey>& current,
                           std::uint32_t owner, std::uint32_t currentUser, std::int32_t selfPID);

}  // namespace monitor::ProcessActionPolicy
