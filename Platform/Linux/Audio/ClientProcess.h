// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "Platform/Linux/Audio/GraphModel.h"
#include "Platform/Linux/Audio/ProcessSource.h"

namespace monitor::platform {

// Whether the client speaks through the PulseAudio front.
[[nodiscard]] bool isPulseClient(const GraphClient& client);

// The process behind a client of the audio server; nothing when it cannot be told.
//
// The server takes the pid of a native client from the socket. A client of the PulseAudio front only claims
// one, and inside a sandbox it claims the pid of another namespace. The claim counts only for a process of
// the user that lives in our own pid namespace and is not younger than the client; otherwise the process is
// looked for by its innermost pid, among the members of the sandbox's scope where the client belongs to one.
[[nodiscard]] std::optional<std::int32_t> processOfClient(const GraphClient& client,
                                                          const ProcessSource& processes);

// Whether the last component of `cgroup` is a scope of the sandboxed application with that identifier.
[[nodiscard]] bool isScopeOfApplication(std::string_view cgroup, std::string_view application);

}  // namespace monitor::platform
