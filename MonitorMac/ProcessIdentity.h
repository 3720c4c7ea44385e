// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "MonitorCore/Ports/ProcessTable.h"
#include "MonitorCore/ProcessKey.h"

namespace monitor {

struct ProcessIdentity {
  ProcessKey key;
  std::int32_t parent = 0;
  std::uint32_t owner = 0;  // user id

  friend bool operator==(const ProcessIdentity&, const ProcessIdentity&) = default;
};

// Who a process is; nothing when it has ended, never existed or may not be read. The start time is in
// microseconds since 1970; one that does not fit into 64 bits, or a parent that does not fit into a pid,
// stops the program. Keeps no state: callable wherever the table is.
[[nodiscard]] std::optional<ProcessIdentity> processInfo(ProcessTable& table, std::int32_t pid);

// The executable's path with ill-formed UTF-8 replaced; empty when it is not known.
[[nodiscard]] std::string executable(ProcessTable& table, std::int32_t pid);

}  // namespace monitor
