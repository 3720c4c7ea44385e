// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>

namespace monitor {

// What the history store reports when its database fails. what() is the sentence for the user, "Monitor
// history: " followed by the message.
class MonitorStorageError : public std::runtime_error {
 public:
  // A message of the store's own, or SQLite's for the connection, unchanged.
  [[nodiscard]] static MonitorStorageError database(std::string message);

  [[nodiscard]] const std::string& message() const noexcept { return message_; }

 private:
  explicit MonitorStorageError(std::string message);

  std::string message_;
};

}  // namespace monitor
