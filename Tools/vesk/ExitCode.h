// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace monitor::vesk {

// What `vesk` tells the program that started it. The numbers are promised in --help and in the manual page.
enum class ExitCode : std::uint8_t {
  Ok = 0,
  Failed = 1,       // the operation was tried and failed
  Usage = 2,        // the command line makes no sense
  Unavailable = 3,  // a service that the command needs cannot be reached
  NoMatch = 4,      // a name on the command line matches nothing, or more than one thing
};

// The text that --help prints about them.
inline constexpr const char* kExitCodesHelp =
    "Exit status:\n"
    "  0  done\n"
    "  1  the operation failed\n"
    "  2  wrong usage\n"
    "  3  a service that the command needs cannot be reached\n"
    "  4  a name given matches nothing, or more than one thing";

// Ends a command. what() is printed on standard error after "vesk: "; every line of it is a sentence of its
// own.
class CommandError : public std::runtime_error {
 public:
  CommandError(ExitCode code, const std::string& text) : std::runtime_error(text), code_(code) {}
  [[nodiscard]] ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

}  // namespace monitor::vesk
