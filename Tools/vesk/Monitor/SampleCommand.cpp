// SPDX-License-Identifier: MIT
#include "Tools/vesk/Monitor/SampleCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <vector>

#include "MonitorCore/AppAggregator.h"
#include "MonitorCore/ProjectGrouper.h"
#include "MonitorCore/SnapshotRecording.h"
#include "Tools/vesk/History/MetricText.h"
#include "Tools/vesk/Monitor/FigureText.h"
#include "Tools/vesk/ProjectJson.h"
#include "Tools/vesk/Table.h"
#include "Tools/vesk/TextWidth.h"

namespace monitor::vesk {
namespace {

constexpr double kSecondsBetweenReads = 1.0;
// The helper measures for a second, and takes about as long around it.
constexpr double kHelperPatience = 4.0;

MonitorSnapshot secondOfTwoPasses(const SampleOptions& options, const MonitorHost& host) {
  host.advanced.request();
  (void)host.collector.sample(false);
  // From here, so that a slow first read does not shorten what the rates are about.
  if (!host.pause.until(host.clock.now() + kSecondsBetweenReads)) {
    throw CommandError(ExitCode::Failed, "Interrupted.");
  }
  MonitorSnapshot snapshot = host.collector.sample(options.projects);
  host.advanced.settle(kHelperPatience);
  host.advanced.mergeInto(snapshot);
  return snapshot;
}

std::string readingsTable(const MonitorSnapshot& snapshot, const Terminal& terminal) {
  Table table({{"READING"}, {"VALUE", Align::Right}, {"DETAIL", Align::Left, true}});
  for (const auto& [metric, reading] : snapshot.readings) {
    table.add({metricTitle(metric), readingText(reading), reading.detail.value_or("")});
  }
  for (const AccessoryBattery& accessory : snapshot.accessories) {
    table.add({shortened(printable(accessory.name()), 30),
               valueText(accessory.percent(), MetricUnit::Percent), "Battery of an accessory"});
  }
  return table.text(terminal);
}

bool has(const std::vector<AppUsage>& apps, std::optional<double> AppUsage::*figure) {
  return std::any_of(apps.begin(), apps.end(),
                     [figure](const auto& app) { return (app.*figure).has_value(); });
}

std::string appsTable(const std::vector<AppUsage>& apps, const Terminal& terminal) {
  struct Figure {
    const char* title;
    std::optional<double> AppUsage::*field;
    std::string (*text)(const std::optional<double>&);
  };
  std::vector<Figure> figures{{"CPU %", &AppUsage::cpu, figureText},
                              {"READ/S", &AppUsage::diskRead, bytesText},
                              {"WRITE/S", &AppUsage::diskWrite, bytesText}};
  // Only the helper knows these.
  for (const Figure& figure :
       {Figure{"DOWN/S", &AppUsage::download, bytesText}, Figure{"UP/S", &AppUsage::upload, bytesText},
        Figure{"ENERGY", &AppUsage::energy, figureText}}) {
    if (has(apps, figure.field)) figures.push_back(figure);
  }
  std::vector<Column> columns{{"APP", Align::Left, true}};
  for (const Figure& figure : figures) columns.push_back({figure.title, Align::Right});
  columns.push_back({"MEMORY", Align::Right});
  columns.push_back({"PROCESSES", Align::Right});
  columns.push_back({"ID", Align::Left, true});
  Table table(std::move(columns));
  for (const AppUsage& app : apps) {
    std::vector<std::string> cells{app.name};
    for (const Figure& figure : figures) cells.push_back(figure.text(app.*figure.field));
    cells.push_back(bytesText(static_cast<double>(app.memory)));
    cells.push_back(std::to_string(app.processes.size()));
    cells.push_back(app.id);
    table.add(std::move(cells));
  }
  return table.empty() ? "No apps.\n" : table.text(terminal);
}

std::string projectsTable(const std::vector<MonitorProject>& projects, const Terminal& terminal) {
  Table table({{"PROJECT", Align::Left, true},
               {"SERVER", Align::Left, true},
               {"PID", Align::Right},
               {"PORTS", Align::Left, true},
               {"PROCESSES", Align::Right}});
  for (const MonitorProject& project : projects) {
    for (const ProcessSample& root : project.roots) {
      table.add({project.id, root.name, std::to_string(root.key.pid),
                 fmt::format("{}", fmt::join(root.ports, " ")), std::to_string(project.processes.size())});
    }
  }
  return table.empty() ? "No projects.\n" : table.text(terminal);
}

void printTables(const MonitorSnapshot& snapshot, const std::vector<MonitorProject>* projects,
                 const std::string& helper, const Console& console) {
  console.out << readingsTable(snapshot, console.outTerminal) << '\n'
              << appsTable(snapshot.apps, console.outTerminal);
  if (projects != nullptr) console.out << '\n' << projectsTable(*projects, console.outTerminal);
  console.out << '\n';
  if (snapshot.restrictedProcessCount > 0) {
    console.out << fmt::format("{} of your processes could not be looked into.\n",
                               snapshot.restrictedProcessCount);
  }
  console.out << printable(helper) << '\n';
}

}  // namespace

ExitCode printSample(const SampleOptions& options, const MonitorHost& host, const Console& console) {
  const MonitorSnapshot snapshot = secondOfTwoPasses(options, host);
  std::vector<MonitorProject> projects;
  if (options.projects) projects = ProjectGrouper::groups(AppAggregator::processesOf(snapshot.apps));
  if (!options.json) {
    printTables(snapshot, options.projects ? &projects : nullptr, host.advanced.status(), console);
    return ExitCode::Ok;
  }
  json::Writer object = recordingObject(snapshot);
  if (options.projects) object.set("projects", projectsJson(projects));
  object.set("helper", host.advanced.status());
  console.out << object.text() << '\n';
  return ExitCode::Ok;
}

}  // namespace monitor::vesk
