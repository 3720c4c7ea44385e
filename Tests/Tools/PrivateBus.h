// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "Platform/Linux/Ipc/Bus.h"
#include "Tools/AudioLab/ChildProcess.h"
#include "Tools/AudioLab/StackOptions.h"
#include "Tools/vesk/Agent/BusCalls.h"

namespace monitor::vesk {

// A session bus of a test's own, in a temporary directory, with programs that it starts on demand. Its end
// ends all of them. Make it on the test's thread.
class PrivateBus {
 public:
  struct Run {
    int status = 0;
    std::string out;
    std::string err;
  };

  PrivateBus();
  ~PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  [[nodiscard]] const std::filesystem::path& directory() const { return directory_; }
  // For every process that is to live on this bus.
  [[nodiscard]] const lab::Environment& environment() const { return environment_; }
  // From now on the bus starts `command` (an Exec= line) when somebody calls `name`.
  void activate(const std::string& name, const std::string& command);
  // A connection of the calling process, for calls that a program does not make.
  [[nodiscard]] platform::Bus connect() const;

  // Runs a program on the bus to its end.
  [[nodiscard]] Run run(std::vector<std::string> command);
  [[nodiscard]] lab::ChildProcess spawn(std::vector<std::string> command, bool talk);
  // What programs started by spawn() wrote to standard error, and to standard output unless they talk.
  [[nodiscard]] std::string spawnLog() const;
  // Ends the bus itself.
  void kill() { daemon_.kill(); }

 private:
  std::filesystem::path directory_;
  lab::Environment environment_;
  lab::ChildProcess daemon_;
  int runs_ = 0;
};

}  // namespace monitor::vesk
