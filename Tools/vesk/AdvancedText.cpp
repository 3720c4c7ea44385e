// SPDX-License-Identifier: MIT
#include "Tools/vesk/AdvancedText.h"

#include <fmt/format.h>

#include <optional>
#include <string>

#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/Metrics.h"
#include "Tools/vesk/Table.h"
#include "Tools/vesk/TextWidth.h"

namespace monitor::vesk {
namespace {

std::string figure(std::optional<double> value) {
  return value ? fmt::format("{:.6g}", *value) : "-";
}

}  // namespace

void printAdvancedSample(const AdvancedSample& sample, const Console& console) {
  console.out << printable(sample.statusDescription()) << '\n';
  if (!sample.readings.empty()) {
    Table readings({{"READING"}, {"VALUE", Align::Right}, {"UNIT"}, {"DETAIL", Align::Left, true}});
    for (const auto& [metric, reading] : sample.readings) {
      readings.add({std::string(rawValue(metric)), figure(reading.value), std::string(rawValue(reading.unit)),
                    reading.detail.value_or("")});
    }
    console.out << '\n' << readings.text(console.outTerminal);
  }
  if (!sample.processes.empty()) {
    Table processes({{"PROCESS"},
                     {"DOWNLOAD B/S", Align::Right},
                     {"UPLOAD B/S", Align::Right},
                     {"ENERGY", Align::Right}});
    for (const AdvancedProcessReading& process : sample.processes) {
      processes.add(
          {process.key.id(), figure(process.download), figure(process.upload), figure(process.energy)});
    }
    console.out << '\n' << processes.text(console.outTerminal);
  }
}

void printAdvancedJson(const AdvancedSample& sample, const Console& console) {
  json::Writer status = json::Writer::object();
  status.set("status", sample.statusDescription());
  console.out << R"({"sample":)" << encodeAdvancedSample(sample) << ',' << status.text().substr(1) << '\n';
}

}  // namespace monitor::vesk
