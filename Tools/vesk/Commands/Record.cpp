// SPDX-License-Identifier: MIT
#include <memory>
#include <string>

#include "Tools/vesk/CommandLine.h"
#include "Tools/vesk/Commands/Commands.h"
#include "Tools/vesk/Monitor/PlatformMonitor.h"
#include "Tools/vesk/Monitor/RecordCommand.h"
#include "Tools/vesk/Monitor/SignalWatch.h"
#include "Tools/vesk/PlatformHost.h"
#include "Tools/vesk/SecondsOption.h"

namespace monitor::vesk {

void addRecordCommand(CommandLine& commandLine) {
  const auto options = std::make_shared<RecordOptions>();
  CLI::App& command = commandLine.add(
      "Monitor", "record", "Record snapshots of the machine", [options](const Console& console) {
        const PlatformHost platform = makePlatformHost();
        PlatformMonitor monitor;
        SignalPause pause(*platform.clock);
        return record(*options, {monitor.collector(), monitor.advanced(), *platform.clock, pause}, console);
      });
  CLI::Option* file = command.add_option(
      "FILE", options->file, "A recording, continued where it exists; - writes to the standard output");
  command.add_option("--db", options->database, "A history instead: what `vesk history` reads")
      ->type_name("FILE")
      ->excludes(file);
  command.add_option("--every", options->every, "Seconds between snapshots, 0.1 to 60")
      ->check(secondsWithin(kLeastInterval, kMostInterval))
      ->type_name("S")
      ->capture_default_str();
  command.add_option("--for", options->duration, "Seconds to record, 0.1 to a year; without it until Ctrl-C")
      ->check(secondsWithin(kLeastInterval, kMostDuration))
      ->type_name("S");
  command.add_flag("--projects", options->projects,
                   "With listening ports and working folders, for `vesk replay --projects`");
  command.footer(
      "Ctrl-C, SIGTERM and SIGHUP end the recording in order. Each line holds the snapshot and its "
      "processes: "
      "`vesk history append` and `vesk replay` both read it.\n\n" +
      std::string(kExitCodesHelp));
}

}  // namespace monitor::vesk
