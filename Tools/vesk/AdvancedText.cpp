// SPDX-License-Identifier: MIT
#include "Tools/vesk/AdvancedText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/Metrics.h"
#include "Tools/vesk/Table.h"
#include "Tools/vesk/TextWidth.h"

namespace monitor::vesk {
namespace {

std::string figure(std::optional<double> value) {
  return value ? fmt::format("{:.6g}", *value) : "-";
}

bool isActive(const AdvancedProcessReading& process) {
  return process.download > 0.0 || process.upload > 0.0 || process.energy > 0.0;
}

std::vector<AdvancedProcessReading> byEnergy(std::vector<AdvancedProcessReading> processes) {
  std::stable_sort(processes.begin(), processes.end(), [](const auto& left, const auto& right) {
    return left.energy.value_or(-1.0) > right.energy.value_or(-1.0);
  });
  return processes;
}

std::string processTable(const std::vector<AdvancedProcessReading>& processes, const ProcessNames& names,
                         const Terminal& terminal) {
  std::vector<Column> columns = {
      {"PROCESS"}, {"DOWNLOAD B/S", Align::Right}, {"UPLOAD B/S", Align::Right}, {"ENERGY", Align::Right}};
  if (names) columns.push_back({"NAME", Align::Left, true});
  Table table(std::move(columns));
  for (const AdvancedProcessReading& process : processes) {
    std::vector<std::string> cells = {process.key.id(), figure(process.download), figure(process.upload),
                                      figure(process.energy)};
    if (names) cells.push_back(names(process.key.pid));
    table.add(std::move(cells));
  }
  return table.text(terminal);
}

}  // namespace

void printAdvancedSample(const AdvancedSample& sample, const Console& console, const ProcessNames& names) {
  console.out << printable(sample.statusDescription()) << '\n';
  if (!sample.readings.empty()) {
    Table readings({{"READING"}, {"VALUE", Align::Right}, {"UNIT"}, {"DETAIL", Align::Left, true}});
    for (const auto& [metric, reading] : sample.readings) {
      readings.add({std::string(rawValue(metric)), figure(reading.value), std::string(rawValue(reading.unit)),
                    reading.detail.value_or("")});
    }
    console.out << '\n' << readings.text(console.outTerminal);
  }
  std::vector<AdvancedProcessReading> processes = byEnergy(sample.processes);
  if (names) std::erase_if(processes, [](const auto& process) { return !isActive(process); });
  if (!processes.empty()) console.out << '\n' << processTable(processes, names, console.outTerminal);
  const std::size_t idle = sample.processes.size() - processes.size();
  if (idle > 0) console.out << fmt::format("\n{} without activity\n", idle);
}

void printAdvancedJson(const AdvancedSample& sample, const Console& console) {
  json::Writer status = json::Writer::object();
  status.set("status", sample.statusDescription());
  console.out << R"({"sample":)" << encodeAdvancedSample(sample) << ',' << status.text().substr(1) << '\n';
}

}  // namespace monitor::vesk
