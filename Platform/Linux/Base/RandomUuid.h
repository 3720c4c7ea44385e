// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace monitor::platform {

// A new random UUID in its usual text form, upper-case hexadecimal: "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
// Any thread. std::system_error when the kernel has no random numbers to give.
[[nodiscard]] std::string randomUuid();

}  // namespace monitor::platform
