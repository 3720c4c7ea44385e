// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "MonitorMac/Ports/TextOrder.h"

namespace monitor::platform {

// The order of the user's locale by ICU: letter case ignored, digits compared as numbers.
[[nodiscard]] std::unique_ptr<TextOrder> makeTextOrder();

}  // namespace monitor::platform
