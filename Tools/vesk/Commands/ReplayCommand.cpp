// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "MonitorCore/AppAggregator.h"
#include "MonitorCore/Json/RecordedNumber.h"
#include "MonitorCore/MonitorAlertRules.h"
#include "MonitorCore/ProcessRecording.h"
#include "MonitorCore/ProjectActivityTracker.h"
#include "MonitorCore/ProjectGrouper.h"
#include "MonitorCore/Recording.h"
#include "Tools/vesk/CommandLine.h"
#include "Tools/vesk/Commands/Commands.h"
#include "Tools/vesk/Commands/InputFile.h"
#include "Tools/vesk/ProjectJson.h"
#include "Tools/vesk/Table.h"
#include "Tools/vesk/TimeText.h"

namespace monitor::vesk {
namespace {

struct Options {
  std::string file;
  std::string preferences;
  bool alerts = false;
  bool projects = false;
  bool apps = false;
  bool json = false;
};

std::string moment(Date date) {
  return std::isfinite(date.secondsSince2001) ? timeText(date, TimeZone::local())
                                              : fmt::format("{}", date.secondsSince2001);
}

std::string figure(std::optional<double> value) {
  return value ? fmt::format("{:.1f}", *value) : "-";
}

std::string duration(double seconds) {
  if (!(seconds < 1e9)) return "-";
  const auto whole = static_cast<long long>(seconds);
  return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

template <class Take>
void forEachSample(const std::string& path, Take take) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw CommandError(ExitCode::Failed, path + ": " + std::strerror(errno));
  RecordingReader reader(file, path);
  while (auto sample = reader.next(decodeProcesses)) take(std::move(*sample));
}

// Without a file the defaults, but with alerts switched on.
MonitorPreferences readPreferences(const Options& options, const Console& console) {
  MonitorPreferences preferences;
  preferences.alertsEnabled = true;
  if (!options.preferences.empty()) {
    try {
      preferences = decodePreferences(readInputFile(options.preferences));
    } catch (const json::DecodeError& error) {
      throw badInput(options.preferences, error.what());
    }
    if (!preferences.alertsEnabled) console.complain(options.preferences + " has alerts switched off.");
  }
  preferences.normalize();
  return preferences;
}

// From when on the alert's condition held: the run of a sustained rule, or the oldest of the memory history.
Date sinceWhen(const MonitorAlertRules& rules, const MonitorAlert& alert) {
  const auto start = rules.starts().find(alert.id);
  return start != rules.starts().end() ? start->second : rules.memory().at(alert.appID).front().date;
}

ExitCode replayAlerts(const Options& options, const Console& console) {
  const MonitorPreferences preferences = readPreferences(options, console);
  MonitorAlertRules rules;
  json::Writer list = json::Writer::array();
  Table table({{"TIME"}, {"SINCE"}, {"ALERT", Align::Left, true}, {"DETAIL", Align::Left, true}});
  forEachSample(options.file, [&](RecordedProcesses sample) {
    const auto apps = AppAggregator::group(std::move(sample.processes));
    for (const MonitorAlert& alert : rules.evaluate(apps, sample.timestamp, preferences)) {
      const Date since = sinceWhen(rules, alert);
      table.add({moment(sample.timestamp), moment(since), alert.title, alert.detail});
      json::Writer object = json::Writer::object();
      json::setRecorded(object, "timestamp", sample.timestamp.secondsSince2001);
      json::setRecorded(object, "since", since.secondsSince2001);
      object.set("id", alert.id);
      object.set("appID", alert.appID);
      object.set("title", alert.title);
      object.set("detail", alert.detail);
      list.append(std::move(object));
    }
  });
  if (options.json) {
    console.out << list.text() << '\n';
  } else {
    console.out << (table.empty() ? "No alerts.\n" : table.text(console.outTerminal));
  }
  return ExitCode::Ok;
}

void printProjects(const std::vector<MonitorProject>& projects, const ProjectActivityTracker& tracker,
                   const Console& console) {
  Table table({{"PROJECT", Align::Left, true},
               {"SERVER", Align::Left, true},
               {"PID", Align::Right},
               {"PORTS"},
               {"PROCESSES", Align::Right},
               {"IDLE", Align::Right}});
  for (const MonitorProject& project : projects) {
    for (const ProcessSample& root : project.roots) {
      const auto idle = tracker.lowActivitySeconds().find(root.key);
      table.add({project.id, root.name, std::to_string(root.key.pid),
                 fmt::format("{}", fmt::join(root.ports, " ")), std::to_string(project.processes.size()),
                 idle == tracker.lowActivitySeconds().end() ? "-" : duration(idle->second)});
    }
  }
  console.out << (table.empty() ? "No projects.\n" : table.text(console.outTerminal));
}

ExitCode replayProjects(const Options& options, const Console& console) {
  ProjectActivityTracker tracker;
  std::vector<ProcessSample> last;
  forEachSample(options.file, [&](RecordedProcesses sample) {
    tracker.observe(sample.processes, sample.timestamp);
    last = std::move(sample.processes);
  });
  const std::vector<MonitorProject> projects = ProjectGrouper::groups(last);
  if (!options.json) {
    printProjects(projects, tracker, console);
    return ExitCode::Ok;
  }
  console.out << projectsJson(projects, &tracker.lowActivitySeconds()).text() << '\n';
  return ExitCode::Ok;
}

json::Writer appObject(const AppUsage& app) {
  json::Writer object = json::Writer::object();
  object.set("id", app.id);
  object.set("name", app.name);
  if (app.bundleID) object.set("bundleID", *app.bundleID);
  object.set("processes", processNames(app.processes));
  json::setRecorded(object, "cpu", app.cpu);
  object.set("memory", app.memory);
  json::setRecorded(object, "diskRead", app.diskRead);
  json::setRecorded(object, "diskWrite", app.diskWrite);
  json::setRecorded(object, "download", app.download);
  json::setRecorded(object, "upload", app.upload);
  json::setRecorded(object, "energy", app.energy);
  return object;
}

ExitCode replayApps(const Options& options, const Console& console) {
  std::vector<ProcessSample> last;
  forEachSample(options.file, [&](RecordedProcesses sample) { last = std::move(sample.processes); });
  json::Writer list = json::Writer::array();
  Table table({{"APP", Align::Left, true},
               {"CPU %", Align::Right},
               {"MEMORY", Align::Right},
               {"READ B/S", Align::Right},
               {"WRITE B/S", Align::Right},
               {"PROCESSES", Align::Right},
               {"ID", Align::Left, true}});
  for (const AppUsage& app : AppAggregator::group(std::move(last))) {
    table.add({app.name, figure(app.cpu), std::to_string(app.memory), figure(app.diskRead),
               figure(app.diskWrite), std::to_string(app.processes.size()), app.id});
    list.append(appObject(app));
  }
  if (options.json) {
    console.out << list.text() << '\n';
  } else {
    console.out << (table.empty() ? "No apps.\n" : table.text(console.outTerminal));
  }
  return ExitCode::Ok;
}

ExitCode replay(const Options& options, const Console& console) {
  try {
    if (options.alerts) return replayAlerts(options, console);
    return options.projects ? replayProjects(options, console) : replayApps(options, console);
  } catch (const RecordingError& error) {
    throw CommandError(ExitCode::Failed, error.what());
  }
}

}  // namespace

void addReplayCommand(CommandLine& commandLine) {
  const auto options = std::make_shared<Options>();
  CLI::App& command =
      commandLine.add("Analysis", "replay", "Try the rules on recorded processes",
                      [options](const Console& console) { return replay(*options, console); });
  command.add_option("FILE", options->file, "Recording of processes, one sample a line")->required();
  CLI::Option_group* what = command.add_option_group("What to show");
  what->add_flag("--alerts", options->alerts, "Every alert with its time and since when its cause lasted");
  what->add_flag("--projects", options->projects,
                 "The projects of the last sample and how long their servers idled");
  what->add_flag("--apps", options->apps, "The apps of the last sample");
  what->require_option(1);
  command.add_option("--preferences", options->preferences,
                     "JSON of the user's settings; without it the defaults with alerts on");
  command.add_flag("--json", options->json, "Print one JSON list");
}

}  // namespace monitor::vesk
