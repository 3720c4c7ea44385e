// SPDX-License-Identifier: MIT
#include "Platform/Linux/Helper/ActiveSessions.h"

#include <systemd/sd-login.h>
#include <unistd.h>

namespace monitor::platform {

bool hasActiveLocalSession(std::uint32_t user) {
  constexpr int kActiveOnes = 1;
  // Where the login manager keeps its seats; it makes the folder when it starts.
  if (user == 0 || ::access("/run/systemd/seats/", F_OK) != 0) return true;
  return ::sd_uid_get_seats(user, kActiveOnes, nullptr) > 0;
}

}  // namespace monitor::platform
