// SPDX-License-Identifier: MIT
#include <memory>

#include "Tools/vesk/CommandLine.h"
#include "Tools/vesk/Commands/Commands.h"
#include "Tools/vesk/Monitor/PlatformMonitor.h"
#include "Tools/vesk/Monitor/SampleCommand.h"
#include "Tools/vesk/Monitor/SignalWatch.h"
#include "Tools/vesk/PlatformHost.h"

namespace monitor::vesk {

void addSampleCommand(CommandLine& commandLine) {
  const auto options = std::make_shared<SampleOptions>();
  CLI::App& command = commandLine.add(
      "Monitor", "sample", "Look at the whole machine once", [options](const Console& console) {
        const PlatformHost platform = makePlatformHost();
        PlatformMonitor monitor;
        SignalPause pause(*platform.clock);
        return printSample(*options, {monitor.collector(), monitor.advanced(), *platform.clock, pause},
                           console);
      });
  command.add_flag("--projects", options->projects,
                   "Also group the processes under listening servers into projects, by working folder");
  command.add_flag("--json", options->json,
                   "Print one line of the recording format, with projects and helper");
  command.footer("Takes a second: rates are what happened between two reads.\n\n" +
                 std::string(kExitCodesHelp));
}

}  // namespace monitor::vesk
