// SPDX-License-Identifier: MIT
#include "Tests/MonitorCore/Support/Describe.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <sstream>

namespace monitor::testing {
namespace {

std::string describe(const std::optional<double>& value) {
  if (!value) return "absent";
  if (std::isnan(*value)) return "nan";
  std::ostringstream text;
  text << std::hexfloat << *value;
  return text.str();
}

std::string describe(const std::optional<std::string>& text) {
  return text ? '\'' + *text + '\'' : "absent";
}

}  // namespace

std::string describe(const ProcessSample& sample) {
  std::ostringstream text;
  text << sample.key.id() << " parent " << sample.parentPID << " owner " << sample.owner << " name "
       << sample.name << " bundle " << describe(sample.bundleID) << " executable " << sample.executable
       << " cpu " << describe(sample.cpu) << " memory " << sample.memory << " disk "
       << describe(sample.diskRead) << ' ' << describe(sample.diskWrite) << " network "
       << describe(sample.download) << ' ' << describe(sample.upload) << " energy " << describe(sample.energy)
       << " directory " << describe(sample.directory) << " ports";
  for (const std::int64_t port : sample.ports) text << ' ' << port;
  return text.str();
}

std::string describeByPid(std::vector<ProcessSample> samples) {
  std::string text;
  for (std::size_t begin = 0; begin < samples.size();) {
    std::size_t end = begin;
    std::vector<std::string> lines;
    for (; end < samples.size() && samples[end].key.pid == samples[begin].key.pid; ++end) {
      lines.push_back(describe(samples[end]));
    }
    std::sort(lines.begin(), lines.end());
    for (const std::string& line : lines) text += "    " + line + '\n';
    begin = end;
  }
  return text;
}

std::string describe(const std::vector<AppUsage>& rows) {
  std::ostringstream text;
  for (const AppUsage& row : rows) {
    text << row.id << " name " << row.name << " bundle " << describe(row.bundleID) << " cpu "
         << describe(row.cpu) << " memory " << row.memory << " disk " << describe(row.diskRead) << ' '
         << describe(row.diskWrite) << " network " << describe(row.download) << ' ' << describe(row.upload)
         << " energy " << describe(row.energy) << '\n'
         << describeByPid(row.processes);
  }
  return text.str();
}

std::string describe(const std::vector<MonitorProject>& projects) {
  std::ostringstream text;
  for (const MonitorProject& project : projects) {
    text << project.id << " folder " << describe(project.folder) << "\n  roots\n";
    for (const ProcessSample& root : project.roots) text << "    " << describe(root) << '\n';
    text << "  processes\n" << describeByPid(project.processes);
  }
  return text.str();
}

}  // namespace monitor::testing
