// SPDX-License-Identifier: MIT
#include "MonitorCore/MonitorStorageError.h"

#include <utility>

namespace monitor {

MonitorStorageError::MonitorStorageError(std::string message)
    : std::runtime_error("Monitor history: " + message), message_(std::move(message)) {}

MonitorStorageError MonitorStorageError::database(std::string message) {
  return MonitorStorageError(std::move(message));
}

}  // namespace monitor
