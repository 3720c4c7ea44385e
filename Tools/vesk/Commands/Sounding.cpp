// SPDX-License-Identifier: MIT
#include <memory>
#include <string>

#include "Tools/vesk/CommandLine.h"
#include "Tools/vesk/Commands/Commands.h"
#include "Tools/vesk/Monitor/PlatformMonitor.h"
#include "Tools/vesk/Monitor/SoundingCommand.h"

namespace monitor::vesk {
namespace {

std::vector<ActiveAudioApplication> soundingNow() {
  PlatformMonitor monitor;
  try {
    return monitor.sounding();
  } catch (const NativeAudioActivity::AudioActivityError& error) {
    throw CommandError(ExitCode::Unavailable, std::string(error.what()) + '\n' + monitor.soundingProblem());
  }
}

}  // namespace

void addSoundingCommand(CommandLine& commandLine) {
  const auto json = std::make_shared<bool>(false);
  CLI::App& command = commandLine.add("Volume", "sounding", "List the programs that produce sound now",
                                      [json](const Console& console) {
                                        printSounding(soundingNow(), *json, console);
                                        return ExitCode::Ok;
                                      });
  command.add_flag("--json", *json,
                   "Print a JSON array of objects with id, name and, where there is one, bundleURL");
  command.footer("Starts neither agent nor audio service.\n\n" + std::string(kExitCodesHelp));
}

}  // namespace monitor::vesk
