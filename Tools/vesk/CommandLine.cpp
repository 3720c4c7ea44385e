// SPDX-License-Identifier: MIT
#include "Tools/vesk/CommandLine.h"

#include <exception>
#include <ios>
#include <sstream>

#include "Tools/vesk/Commands/Commands.h"
#include "Tools/vesk/ManualPage.h"

namespace monitor::vesk {

CommandLine::CommandLine() : app_("Per-application volume and system monitor.", "vesk") {
  app_.set_version_flag("--version", std::string("vesk ") + VESK_VERSION, "Print the version and exit");
  app_.set_help_flag("-h,--help", "Print this help and exit");
  app_.footer(std::string("`vesk COMMAND --help` explains one command.\n\n") + kExitCodesHelp);
  app_.require_subcommand(1);
  app_.get_formatter()->column_width(34);
  addAllCommands(*this);
  // Not in the help: the build makes the manual page with it.
  add("", "manual", "Print the manual page in roff", [this](const Console& console) {
    console.out << manualPage(app_, VESK_VERSION);
    return ExitCode::Ok;
  });
}

CLI::App& CommandLine::add(const std::string& group, const std::string& name, const std::string& description,
                           Action action) {
  CLI::App* command = app_.add_subcommand(name, description);
  command->group(group);
  command->footer(kExitCodesHelp);
  command->callback([this, action = std::move(action)] { chosen_ = action; });
  return *command;
}

ExitCode CommandLine::run(const std::vector<std::string>& arguments, const Console& console) {
  try {
    app_.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::Success& request) {
    std::ostringstream ignored;
    app_.exit(request, console.out, ignored);
    return ExitCode::Ok;
  } catch (const CLI::Error& error) {
    console.complain(std::string(error.what()) + "\nRun `vesk --help` for the commands and their arguments.");
    return ExitCode::Usage;
  }
  return perform(console);
}

ExitCode CommandLine::perform(const Console& console) const {
  try {
    const ExitCode code = chosen_(console);
    console.out.flush();
    if (!console.out) throw CommandError(ExitCode::Failed, "Standard output cannot be written.");
    return code;
  } catch (const CommandError& error) {
    console.out.flush();
    console.complain(error.what());
    return error.code();
  } catch (const std::exception& error) {
    console.out.flush();
    console.complain(error.what());
    return ExitCode::Failed;
  }
}

}  // namespace monitor::vesk
