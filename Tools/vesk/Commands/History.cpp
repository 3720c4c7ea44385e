// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <functional>
#include <iostream>
#include <limits>
#include <memory>
#include <string>

#include "MonitorMac/MonitorPlatform.h"
#include "Tools/vesk/CommandLine.h"
#include "Tools/vesk/Commands/Commands.h"
#include "Tools/vesk/History/HistoryCommands.h"
#include "Tools/vesk/PlatformHost.h"
#include "Tools/vesk/TimeText.h"

namespace monitor::vesk {
namespace {

using Chosen = std::shared_ptr<Action>;

// `run` gets the options with the file filled in, and the host.
template <class Options>
Action action(std::shared_ptr<Options> options,
              ExitCode (*run)(const Options&, const HistoryHost&, const Console&)) {
  return [options = std::move(options), run](const Console& console) {
    const PlatformHost platform = makePlatformHost();
    const TimeZone zone = TimeZone::local();
    const HistoryHost host{*platform.clock, *platform.wallClock, zone, std::cin, isatty(STDIN_FILENO) == 1};
    Options filled = *options;
    if (filled.file.empty()) filled.file = MonitorPlatform::historyURL(*platform.system);
    return run(filled, host, console);
  };
}

template <class Options>
CLI::App& addTo(CLI::App& history, const Chosen& chosen, const char* name, const char* description,
                const std::shared_ptr<Options>& options,
                ExitCode (*run)(const Options&, const HistoryHost&, const Console&)) {
  CLI::App& command = *history.add_subcommand(name, description);
  command.callback([chosen, act = action(options, run)] { *chosen = act; });
  command.add_option("--db", options->file, "The database file, instead of the user's own")
      ->type_name("FILE");
  command.footer(kExitCodesHelp);
  return command;
}

void addAppend(CLI::App& history, const Chosen& chosen) {
  const auto options = std::make_shared<HistoryAppend>();
  CLI::App& command =
      addTo(history, chosen, "append", "Append a recording of snapshots", options, appendRecording);
  command
      .add_option("RECORDING", options->recording,
                  "One snapshot a line, as `vesk record` writes them; - reads the standard input")
      ->required();
}

void addQuery(CLI::App& history, const Chosen& chosen) {
  const auto options = std::make_shared<HistoryQuery>();
  CLI::App& command =
      addTo(history, chosen, "query", "Show or plot the history of a metric", options, queryHistory);
  command.add_option("METRIC", options->metric, "cpu, memoryUsed, diskRead, …; a wrong name prints all")
      ->required();
  command.add_option("--app", options->app, "The id of one app; without it, the whole machine")
      ->type_name("ID");
  command.add_option("--from", options->from, "Start of the range")->type_name("TIME")->capture_default_str();
  command.add_option("--through", options->through, "End of the range, included")
      ->type_name("TIME")
      ->capture_default_str();
  CLI::Option* json = command.add_flag(
      "--json", options->json,
      "Print a JSON array of objects with id, date, time, value, peak, coverage and resolution");
  CLI::Option* csv = command.add_flag("--csv", options->csv, "Print comma-separated values");
  CLI::Option* plot =
      command.add_option("--plot", options->plot, "Draw mean and peak into a PNG file")->type_name("FILE");
  json->excludes(csv);
  json->excludes(plot);
  csv->excludes(plot);
  command.footer(std::string(kTimeFormsHelp) + "\n\n" + kExitCodesHelp);
}

void addCoverage(CLI::App& history, const Chosen& chosen) {
  const auto options = std::make_shared<HistoryCoverageOptions>();
  CLI::App& command = addTo(history, chosen, "coverage", "Show how far the history reaches and what it takes",
                            options, showCoverage);
  command.add_flag("--json", options->json,
                   "Print a JSON object with start, startTime, end, endTime and bytes");
}

void addMaintain(CLI::App& history, const Chosen& chosen) {
  const auto options = std::make_shared<HistoryMaintain>();
  CLI::App& command = addTo(history, chosen, "maintain", "Roll up, delete what is old, and give space back",
                            options, maintainHistory);
  command.add_option("--retention-days", options->retentionDays, "Days to keep")
      ->check(CLI::Range(std::int64_t{1}, std::int64_t{30}))
      ->type_name("N")
      ->capture_default_str();
  command.add_option("--max-bytes", options->maxBytes, "Bytes the history may use; the oldest goes first")
      ->check(CLI::Range(std::int64_t{0}, std::numeric_limits<std::int64_t>::max()))
      ->type_name("N")
      ->capture_default_str();
}

void addClear(CLI::App& history, const Chosen& chosen) {
  const auto options = std::make_shared<HistoryClear>();
  CLI::App& command = addTo(history, chosen, "clear", "Delete the whole history", options, clearHistory);
  command.add_flag("--yes", options->yes, "Do not ask");
}

}  // namespace

void addHistoryCommand(CommandLine& commandLine) {
  const auto chosen = std::make_shared<Action>();
  CLI::App& history = commandLine.add("Monitor", "history", "Keep and look at the history of metrics",
                                      [chosen](const Console& console) { return (*chosen)(console); });
  history.require_subcommand(1);
  addAppend(history, chosen);
  addQuery(history, chosen);
  addCoverage(history, chosen);
  addMaintain(history, chosen);
  addClear(history, chosen);
}

}  // namespace monitor::vesk
