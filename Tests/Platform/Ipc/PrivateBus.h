// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Linux/Ipc/Bus.h"
#include "Tools/AudioLab/ChildProcess.h"

namespace monitor::tests {

// A message bus for one test, in a temporary directory, with the limits of a desktop's session bus. It and
// the services it started end with the object.
class PrivateBus {
 public:
  struct Options {
    // Folders with activation files.
    std::vector<std::filesystem::path> serviceFolders = {};
    // Programs that the bus starts when somebody calls their name: the name, and the command.
    std::vector<std::pair<std::string, std::string>> activations = {};
    // Whether other users than the caller's may connect.
    bool everyUser = false;
    // More policy rules of the configuration language, for everybody.
    std::string policy = {};
    // Whole files of the configuration language, read last.
    std::vector<std::filesystem::path> configurations = {};
    // A command that the daemon is the last argument of, and that becomes it: "unshare", "--mount", …
    std::vector<std::string> through = {};
  };

  PrivateBus() : PrivateBus(Options()) {}
  explicit PrivateBus(const Options& options);
  ~PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  [[nodiscard]] const std::string& address() const { return address_; }
  [[nodiscard]] platform::BusAddress busAddress() const { return {.explicitly = address_}; }
  [[nodiscard]] const std::filesystem::path& directory() const { return directory_; }
  // For programs on the bus, which is their session bus and their system bus.
  [[nodiscard]] lab::Environment environment() const;
  [[nodiscard]] pid_t pid() const { return daemon_.pid(); }
  void kill() { daemon_.kill(); }
  // The process behind a name; 0 when nobody has it.
  [[nodiscard]] pid_t ownerOf(const std::string& name) const;

  // Runs a program on the bus to its end.
  [[nodiscard]] lab::CommandResult run(std::vector<std::string> command,
                                       lab::Milliseconds deadline = lab::Milliseconds(20000)) const;

 private:
  std::filesystem::path directory_;
  std::string address_;
  lab::ChildProcess daemon_;
};

}  // namespace monitor::tests
