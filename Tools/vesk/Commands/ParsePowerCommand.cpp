// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <chrono>
#include <memory>
#include <string>

#include "MonitorCore/AdvancedParser.h"
#include "MonitorCore/AudioApplication.h"
#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/MonitorError.h"
#include "Tools/vesk/CommandLine.h"
#include "Tools/vesk/Commands/Commands.h"
#include "Tools/vesk/Commands/InputFile.h"
#include "Tools/vesk/Table.h"

namespace monitor::vesk {
namespace {

struct Options {
  std::string file;
  std::string identities;
  bool json = false;
};

Date now() {
  const std::chrono::duration<double> since1970 = std::chrono::system_clock::now().time_since_epoch();
  return Date::since1970(since1970.count());
}

ProcessIdentities readIdentities(const std::string& path) {
  ProcessIdentities identities;
  if (path.empty()) return identities;
  try {
    for (const ProcessKey& key : decodeProcessKeys(readInputFile(path))) identities[key.pid] = key;
  } catch (const json::DecodeError& error) {
    throw badInput(path, error.what());
  }
  return identities;
}

std::string figure(std::optional<double> value) {
  return value ? fmt::format("{:.6g}", *value) : "-";
}

void print(const AdvancedSample& sample, const Console& console) {
  console.out << sample.statusDescription() << '\n';
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

ExitCode parsePower(const Options& options, const Console& console) {
  const ProcessIdentities identities = readIdentities(options.identities);
  const std::string output = readInputFile(options.file);
  try {
    const AdvancedSample sample = AdvancedParser::parse(output, identities, now());
    if (options.json) {
      json::Writer status = json::Writer::object();
      status.set("status", sample.statusDescription());
      console.out << R"({"sample":)" << encodeAdvancedSample(sample) << ',' << status.text().substr(1)
                  << '\n';
    } else {
      print(sample, console);
    }
  } catch (const MonitorError& error) {
    throw badInput(options.file, error.what());
  }
  return ExitCode::Ok;
}

}  // namespace

void addParsePowerCommand(CommandLine& commandLine) {
  const auto options = std::make_shared<Options>();
  CLI::App& command =
      commandLine.add("Analysis", "parse-power", "Read the output of the power-metrics tool from a file",
                      [options](const Console& console) { return parsePower(*options, console); });
  command
      .add_option("FILE", options->file, "Property lists in XML, parted by zero bytes; the last one counts")
      ->required();
  command.add_option(
      "--identities", options->identities,
      "JSON list of the known processes, [{\"pid\":812,\"start\":5000}]; tasks of others are skipped");
  command.add_flag("--json", options->json, "Print the sample and its status as JSON");
}

}  // namespace monitor::vesk
