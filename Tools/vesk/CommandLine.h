// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "Tools/vesk/Console.h"
#include "Tools/vesk/ExitCode.h"

namespace monitor::vesk {

// What a subcommand does once its arguments are read. Throws CommandError (or any std::exception, which
// counts as Failed) instead of printing its own errors.
using Action = std::function<ExitCode(const Console&)>;

// The subcommands of `vesk`, as Commands/Commands.inc lists them. A file of Commands/ defines one function
// `void add<Name>Command(CommandLine&)` which calls add() and gives the returned subcommand its options. The
// action owns the variables that the options write to (a shared_ptr to a struct, usually), because it runs
// after the function has returned.
class CommandLine {
 public:
  CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  // `group` is the heading under which --help lists the command.
  CLI::App& add(const std::string& group, const std::string& name, const std::string& description,
                Action action);

  // Parses, runs the chosen action, prints what went wrong. `arguments` without the program's own name. Never
  // throws.
  [[nodiscard]] ExitCode run(const std::vector<std::string>& arguments, const Console& console);

 private:
  [[nodiscard]] ExitCode perform(const Console& console) const;

  CLI::App app_;
  Action chosen_;
};

}  // namespace monitor::vesk
