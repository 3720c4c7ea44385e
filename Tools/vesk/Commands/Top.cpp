// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <map>
#include <memory>
#include <string>

#include "Tools/vesk/CommandLine.h"
#include "Tools/vesk/Commands/Commands.h"
#include "Tools/vesk/Monitor/RecordCommand.h"
#include "Tools/vesk/SecondsOption.h"
#include "Tools/vesk/Top/TopCommand.h"
#include "Tools/vesk/Top/TopSource.h"

namespace monitor::vesk {
namespace {

struct Options {
  std::string sort = "cpu";
  bool projects = false;
  double every = 2.0;
};

ExitCode top(const Options& options, const Console& console) {
  const std::map<std::string, TopSort> sorts{
      {"cpu", TopSort::Cpu}, {"memory", TopSort::Memory}, {"disk", TopSort::Disk}};
  TopState state;
  state.sort = sorts.at(options.sort);
  state.projects = options.projects;
  state.every = options.every;
  const auto source = std::make_shared<TopSource>();
  return runTop(
      std::move(state), [source](bool projects) { return source->look(projects); }, STDIN_FILENO,
      STDOUT_FILENO, console);
}

}  // namespace

void addTopCommand(CommandLine& commandLine) {
  const auto options = std::make_shared<Options>();
  CLI::App& command = commandLine.add("Monitor", "top", "Watch what every app uses, and how loud it plays",
                                      [options](const Console& console) { return top(*options, console); });
  command.add_option("--sort", options->sort, "What comes first: cpu, memory or disk")
      ->check(CLI::IsMember({"cpu", "memory", "disk"}))
      ->type_name("WHAT")
      ->capture_default_str();
  command.add_flag("--projects", options->projects,
                   "Show projects (listening servers and their processes) instead of apps");
  command.add_option("--every", options->every, "Seconds between looks, 0.1 to 60")
      ->check(secondsWithin(kLeastInterval, kMostInterval))
      ->type_name("S")
      ->capture_default_str();
  command.footer(
      "q or Ctrl-C quits; the last line of the screen has the other keys, and h explains them. Volumes are "
      "those "
      "of programs that play; the view starts neither agent nor audio service.\n\n" +
      std::string(kExitCodesHelp));
}

}  // namespace monitor::vesk
