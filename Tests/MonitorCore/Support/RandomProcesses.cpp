// SPDX-License-Identifier: MIT
#include "Tests/MonitorCore/Support/RandomProcesses.h"

#include <cstdlib>
#include <limits>
#include <string>

namespace monitor::testing {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

ProcessSample anyProcess(Chance& chance, std::int32_t pids, std::uint64_t starts, std::uint64_t owners) {
  static const std::vector<std::optional<std::string>> kBundles{
      std::nullopt, std::nullopt, std::nullopt, std::nullopt, "", "com.a", "com.b", "process:1:0"};
  static const std::vector<std::optional<std::string>> kFolders{std::nullopt, std::nullopt, "",
                                                                "/src/a",     "/src/b",     "process:2:1"};
  static const std::vector<std::uint64_t> kMemory{0, 1, 4096, std::numeric_limits<std::uint64_t>::max()};
  const auto anyPid = [&] {
    return static_cast<std::int32_t>(chance.below(static_cast<std::uint64_t>(pids))) - 1;
  };
  ProcessSample sample;
  sample.key = {anyPid(), chance.below(starts)};
  sample.parentPID = anyPid();
  sample.owner = static_cast<std::uint32_t>(chance.below(owners));
  sample.name = "name" + std::to_string(chance.below(1000));
  sample.bundleID = chance.of(kBundles);
  sample.executable = "/bin/" + sample.name;
  sample.cpu = anyFigure(chance);
  sample.memory = chance.of(kMemory);
  sample.diskRead = anyFigure(chance);
  sample.diskWrite = anyFigure(chance);
  sample.download = anyFigure(chance);
  sample.upload = anyFigure(chance);
  sample.energy = anyFigure(chance);
  sample.directory = chance.of(kFolders);
  if (chance.oneIn(3)) sample.ports = {8080};
  return sample;
}

}  // namespace

int rounds(int usual) { return std::getenv("VESK_LONG") != nullptr ? 20 * usual : usual; }

std::optional<double> anyFigure(Chance& chance) {
  static const std::vector<std::optional<double>> kFigures{
      std::nullopt, std::nullopt, std::numeric_limits<double>::quiet_NaN(),  kInfinity, -kInfinity, 0.0,
      -0.0,         -3.0,         std::numeric_limits<double>::denorm_min(), 0.1,       2.5,        100.0,
      1e308,        -1e308};
  return chance.of(kFigures);
}

std::vector<ProcessSample> anyProcesses(Chance& chance, std::uint64_t most) {
  const std::uint64_t count = chance.below(most + 1);
  const auto pids = static_cast<std::int32_t>(1 + chance.below(most + 1));
  const std::uint64_t starts = 1 + chance.below(4);
  const std::uint64_t owners = 1 + chance.below(3);
  std::vector<ProcessSample> processes;
  for (std::uint64_t index = 0; index < count; ++index) {
    processes.push_back(anyProcess(chance, pids, starts, owners));
    // The very same process once more, now and then with another parent.
    if (chance.oneIn(8)) {
      processes.push_back(processes.back());
      if (chance.oneIn(2)) processes.back().parentPID = static_cast<std::int32_t>(chance.below(most + 1));
    }
  }
  return processes;
}

std::vector<ProcessSample> processChain(std::size_t depth) {
  std::vector<ProcessSample> processes(depth);
  for (std::size_t index = 0; index < depth; ++index) {
    ProcessSample& process = processes[index];
    process.key = {static_cast<std::int32_t>(index + 2), index};
    process.parentPID = static_cast<std::int32_t>(index + 1);
    process.owner = 501;
    process.name = "link";
    process.cpu = 0.5;
  }
  if (depth > 0) processes.front().bundleID = "com.example.root";
  return processes;
}

}  // namespace monitor::testing
