// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace monitor::lab {

// A private message bus with the limits of a desktop's session bus: tests with a thousand clients must meet
// the services' own limits, not the bus's.
struct BusConfiguration {
  std::filesystem::path socket;
  std::vector<std::filesystem::path> serviceFolders = {};  // folders with activation files
  bool everyUser = false;                                  // other users than the caller's may connect
  std::string policy = {};                                 // more rules of the configuration language
  std::vector<std::filesystem::path> includes = {};        // more configuration files
};

// In the configuration language of dbus-daemon.
[[nodiscard]] std::string busConfigurationText(const BusConfiguration& bus);

}  // namespace monitor::lab
