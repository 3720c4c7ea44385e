// SPDX-License-Identifier: MIT
#include "Tests/Platform/Machines/SnapshotText.h"

#include <array>
#include <cstdio>
#include <optional>

namespace monitor::platform {
namespace {

std::string number(double value) {
  std::array<char, 64> text;
  const int length = std::snprintf(text.data(), text.size(), "%.10g", value);
  return {text.data(), static_cast<std::size_t>(length)};
}

std::string number(const std::optional<double>& value) {
  return value ? number(*value) : "-";
}

// With line ends and control characters made visible.
std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char character : text) {
    if (character == '\n') {
      result += "\\n";
    } else {
      result += character;
    }
  }
  return result + '"';
}

std::string readingText(MetricID metric, const MetricReading& reading) {
  return "  " + std::string(rawValue(metric)) + ' ' + number(reading.value) + ' ' +
         std::string(rawValue(reading.unit)) + ' ' + std::string(rawValue(reading.state)) + " | " +
         reading.source + (reading.detail ? " | " + *reading.detail : std::string()) + '\n';
}

std::string processText(const ProcessSample& process) {
  std::string text = "    " + std::to_string(process.key.pid) + " since " +
                     std::to_string(process.key.start) + " of " + std::to_string(process.parentPID) + ' ' +
                     quoted(process.name) + ' ' + quoted(process.executable) + " cpu " + number(process.cpu) +
                     " memory " + std::to_string(process.memory) + " read " + number(process.diskRead) +
                     " write " + number(process.diskWrite);
  for (const std::int64_t port : process.ports) text += " :" + std::to_string(port);
  if (process.directory) text += " in " + *process.directory;
  return text + '\n';
}

}  // namespace

std::string snapshotText(const MonitorSnapshot& snapshot) {
  std::string text = "moment " + number(snapshot.uptime) + " after " + number(snapshot.interval) + " s, " +
                     std::to_string(snapshot.restrictedProcessCount) + " restricted\n";
  for (const auto& [metric, reading] : snapshot.readings) text += readingText(metric, reading);
  for (const AccessoryBattery& accessory : snapshot.accessories) {
    text += "  accessory " + accessory.id() + ' ' + quoted(accessory.name()) + ' ' +
            number(accessory.percent()) + '\n';
  }
  for (const AppUsage& app : snapshot.apps) {
    text += "  app " + app.id + ' ' + quoted(app.name) + " cpu " + number(app.cpu) + " memory " +
            std::to_string(app.memory) + " read " + number(app.diskRead) + " write " + number(app.diskWrite) +
            '\n';
    for (const ProcessSample& process : app.processes) text += processText(process);
  }
  return text;
}

}  // namespace monitor::platform
