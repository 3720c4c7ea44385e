// SPDX-License-Identifier: MIT
#include <chrono>
#include <memory>
#include <string>

#include "MonitorCore/AdvancedParser.h"
#include "MonitorCore/AudioApplication.h"
#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/MonitorError.h"
#include "Tools/vesk/AdvancedText.h"
#include "Tools/vesk/CommandLine.h"
#include "Tools/vesk/Commands/Commands.h"
#include "Tools/vesk/Commands/InputFile.h"

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

ExitCode parsePower(const Options& options, const Console& console) {
  const ProcessIdentities identities = readIdentities(options.identities);
  const std::string output = readInputFile(options.file);
  try {
    const AdvancedSample sample = AdvancedParser::parse(output, identities, now());
    options.json ? printAdvancedJson(sample, console) : printAdvancedSample(sample, console);
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
