// SPDX-License-Identifier: MIT
#include <memory>
#include <optional>
#include <string>

#include "MonitorCore/Json/StrictJson.h"
#include "Tools/vesk/AdvancedText.h"
#include "Tools/vesk/CommandLine.h"
#include "Tools/vesk/Commands/Commands.h"
#include "Tools/vesk/HelperReadings.h"

namespace monitor::vesk {
namespace {

#ifdef __linux__
constexpr const char* kHowToEnable =
    "\nAn administrator enables it with: systemctl enable vesk-helper.service";
#else
constexpr const char* kHowToEnable = "";
#endif

// A helper that nobody enabled is no failure of the helper.
[[noreturn]] void fail(const HelperReadings& helper, bool json, const Console& console) {
  const std::string problem = helper.status();
  if (json) {
    json::Writer object = json::Writer::object();
    object.set("status", problem);
    console.out << object.text() << '\n';
  }
  const auto daemon = helper.daemonStatus();
  if (daemon == DaemonStatus::Enabled) throw CommandError(ExitCode::Failed, problem);
  const bool notEnabled = daemon == DaemonStatus::NotRegistered || daemon == DaemonStatus::RequiresApproval;
  throw CommandError(ExitCode::Unavailable, problem + (notEnabled ? kHowToEnable : ""));
}

ExitCode advanced(bool json, const Console& console) {
  HelperReadings helper;
  helper.request();
  (void)helper.settle(HelperReadings::kLongestRequestSeconds);
  const auto sample = helper.latest();
  if (!sample) fail(helper, json, console);
  json ? printAdvancedJson(*sample, console) : printAdvancedSample(*sample, console, executableName);
  return ExitCode::Ok;
}

}  // namespace

void addAdvancedCommand(CommandLine& commandLine) {
  const auto json = std::make_shared<bool>(false);
  CLI::App& command =
      commandLine.add("Monitor", "advanced", "Show what the optional helper measures: power, heat, traffic",
                      [json](const Console& console) { return advanced(*json, console); });
  command.add_flag("--json", *json,
                   "Print a JSON object with sample, as the helper sends it, and status; status alone when "
                   "there is no sample");
}

}  // namespace monitor::vesk
